// SPDX-License-Identifier: Apache-2.0
// Waits for what other threads do. Each is bounded, far above what a busy machine needs and far
// below the time limit of a test, and fails the test with what did not happen.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <utility>

constexpr int kPatienceSeconds = 10;

/**
 * Waits on `changed` until `isSo`; otherwise fails the test with `what`. The time is the kernel's,
 * also in a program with a controlled clock.
 */
void waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
               const std::string& what, const std::function<bool()>& isSo);

/** The calling thread, for waitUntilAsleep(). */
pid_t ownThread();

/**
 * Blocks until a thread of this process, or the main thread of another, sleeps, be it for a lock, a
 * condition or a time.
 */
void waitUntilAsleep(pid_t thread);

/** Runs `operation` on a thread of its own and returns once that thread sleeps. */
template <typename OPERATION>
auto startAndWaitUntilAsleep(OPERATION operation) {
    std::promise<pid_t> thread;
    auto result = std::async(std::launch::async, [&thread, operation = std::move(operation)] {
        thread.set_value(ownThread());
        return operation();
    });
    waitUntilAsleep(thread.get_future().get());
    return result;
}
