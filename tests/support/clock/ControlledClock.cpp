// SPDX-License-Identifier: Apache-2.0
#include "support/ControlledClock.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>

#include "support/ThreadState.h"

namespace controlled_clock {

namespace {

constexpr int64_t kSecond = 1'000'000'000;

int64_t realNow(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

struct State {
    // Starts at the real time, so that a point in its future lies in the real future as well. Read
    // without the mutex, so that looking at the clock never puts a thread to sleep.
    std::atomic<int64_t> now{realNow(CLOCK_MONOTONIC)};
    std::atomic<int64_t> wallClockError{0};
    std::atomic<int64_t> sleptAt{0};  // Where the clock stood when a thread last went to sleep.
};

State& state() {
    static State& theState = *new State;
    return theState;
}

}  // namespace

void advance(std::chrono::nanoseconds duration) {
    state().now += duration.count();
}

void misreadWallClockOnce(std::chrono::nanoseconds error) {
    state().wallClockError = error.count();
}

void waitForSleeper() {
    waitUntil("a thread to wait for a point of the steady clock",
              [] { return state().sleptAt == state().now; });
}

}  // namespace controlled_clock

using controlled_clock::kSecond;
using controlled_clock::realNow;
using controlled_clock::state;

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    return time_point(std::chrono::nanoseconds(state().now));
}

std::chrono::system_clock::time_point std::chrono::system_clock::now() noexcept {
    const std::chrono::nanoseconds now(realNow(CLOCK_REALTIME) +
                                       state().wallClockError.exchange(0));
    return time_point(std::chrono::duration_cast<duration>(now));
}

// Not under the thread sanitizer, which has to see the waits itself.
#ifndef CONTROLLED_CLOCK_REAL_WAITS
// Taken over from the C library: the wait of a condition variable until a point of the steady
// clock.
extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      clockid_t /*clock*/, const timespec* deadline) {
    const int64_t point = deadline->tv_sec * kSecond + deadline->tv_nsec;
    const int64_t now = state().now;
    if (now >= point) {
        return ETIMEDOUT;
    }
    state().sleptAt = now;
    // Woken early, the caller looks at the clock again.
    const int64_t soon = realNow(CLOCK_REALTIME) + kSecond / 1000;
    const timespec wake{soon / kSecond, soon % kSecond};
    pthread_cond_timedwait(condition, mutex, &wake);
    return 0;
}
#endif
