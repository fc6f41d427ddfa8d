// SPDX-License-Identifier: Apache-2.0
#include "support/ControlledClock.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <set>
#include <utility>

#include "support/ThreadState.h"

namespace controlled_clock {

namespace {

constexpr int64_t kSecond = 1'000'000'000;

int64_t realNow(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

// A condition somebody waits for, and the mutex that goes with it.
using Sleepers = std::set<std::pair<pthread_cond_t*, pthread_mutex_t*>>;

struct State {
    // Starts at the real time, so that a point in its future lies in the real future as well. Read
    // without the mutex, so that looking at the clock never puts a thread to sleep.
    std::atomic<int64_t> now{realNow(CLOCK_MONOTONIC)};
    std::atomic<int64_t> wallClockError{0};
    std::mutex mutex;
    std::condition_variable slept;
    Sleepers sleepers;  // Those who looked at the clock since it was moved.
};

State& state() {
    static State& theState = *new State;
    return theState;
}

}  // namespace

void advance(std::chrono::nanoseconds duration) {
    Sleepers sleepers;
    {
        const std::lock_guard<std::mutex> lock(state().mutex);
        state().now += duration.count();
        sleepers.swap(state().sleepers);
    }
    for (const auto& [condition, mutex] : sleepers) {
        pthread_mutex_lock(mutex);  // Not between a sleeper's look at the clock and its sleep.
        pthread_cond_broadcast(condition);
        pthread_mutex_unlock(mutex);
    }
}

void misreadWallClockOnce(std::chrono::nanoseconds error) {
    state().wallClockError = error.count();
}

void waitForSleeper() {
    std::unique_lock<std::mutex> lock(state().mutex);
    waitUntil(state().slept, lock, "a thread to wait for a point of the steady clock",
              [] { return !state().sleepers.empty(); });
}

}  // namespace controlled_clock

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
    const int64_t point = deadline->tv_sec * controlled_clock::kSecond + deadline->tv_nsec;
    {
        const std::lock_guard<std::mutex> lock(state().mutex);
        if (state().now >= point) {
            return ETIMEDOUT;
        }
        state().sleepers.emplace(condition, mutex);
        state().slept.notify_all();
    }
    pthread_cond_wait(condition, mutex);
    const std::lock_guard<std::mutex> lock(state().mutex);
    state().sleepers.erase({condition, mutex});
    return state().now >= point ? ETIMEDOUT : 0;
}
#endif
