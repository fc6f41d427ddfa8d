#include "support/ControlledClock.h"

#include <pthread.h>

#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <set>
#include <utility>

namespace controlled_clock {

namespace {

// Starts at the real time, so that a point in its future lies in the real future as well.
int64_t realNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

struct State {
    std::mutex mutex;
    std::condition_variable slept;
    int64_t now = realNow();
    // Who waits: the condition and the mutex that goes with it.
    std::set<std::pair<pthread_cond_t*, pthread_mutex_t*>> sleepers;
};

State& state() {
    static State& theState = *new State;
    return theState;
}

int64_t now() {
    const std::lock_guard<std::mutex> lock(state().mutex);
    return state().now;
}

}  // namespace

void advance(std::chrono::nanoseconds duration) {
    std::set<std::pair<pthread_cond_t*, pthread_mutex_t*>> sleepers;
    {
        const std::lock_guard<std::mutex> lock(state().mutex);
        state().now += duration.count();
        sleepers = state().sleepers;
    }
    for (const auto& [condition, mutex] : sleepers) {
        pthread_mutex_lock(mutex);  // Not between a sleeper's look at the clock and its sleep.
        pthread_cond_broadcast(condition);
        pthread_mutex_unlock(mutex);
    }
}

void waitForSleeper() {
    std::unique_lock<std::mutex> lock(state().mutex);
    state().slept.wait(lock, [] { return !state().sleepers.empty(); });
}

}  // namespace controlled_clock

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    return time_point(std::chrono::nanoseconds(controlled_clock::now()));
}

// Not under the thread sanitizer, which has to see the waits itself.
#ifndef CONTROLLED_CLOCK_REAL_WAITS
// Taken over from the C library: the wait of a condition variable until a point of the steady
// clock.
extern "C" int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      clockid_t /*clock*/, const timespec* deadline) {
    using controlled_clock::state;
    const int64_t point = int64_t{deadline->tv_sec} * 1'000'000'000 + deadline->tv_nsec;
    const auto isOver = [point] { return controlled_clock::now() >= point; };
    if (!isOver()) {
        {
            const std::lock_guard<std::mutex> lock(state().mutex);
            state().sleepers.emplace(condition, mutex);
            state().slept.notify_all();
        }
        pthread_cond_wait(condition, mutex);
        const std::lock_guard<std::mutex> lock(state().mutex);
        state().sleepers.erase({condition, mutex});
    }
    return isOver() ? ETIMEDOUT : 0;
}
#endif
