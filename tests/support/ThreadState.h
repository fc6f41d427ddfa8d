// SPDX-License-Identifier: Apache-2.0
// Waits for what other threads do. Each is bounded, far above what a busy machine needs and far
// below the time limit of a test, and fails the test with what did not happen.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <ctime>
#include <fstream>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

constexpr int kPatienceSeconds = 10;

/**
 * Waits on `changed` until `isSo`; otherwise fails the test with `what`. The time is the kernel's,
 * also in a program with a controlled clock.
 */
inline void waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
                      const std::string& what, const std::function<bool()>& isSo) {
    timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += kPatienceSeconds;
    int error = 0;
    while (!isSo() && error != ETIMEDOUT) {
        error = pthread_cond_timedwait(changed.native_handle(), lock.mutex()->native_handle(),
                                       &deadline);
    }
    EXPECT_TRUE(isSo()) << "waited " << kPatienceSeconds << " s for " << what;
}

/** Likewise, for what nobody tells of. */
inline void waitUntil(const std::string& what, const std::function<bool()>& isSo) {
    const std::time_t deadline = std::time(nullptr) + kPatienceSeconds;
    bool wasSo = isSo();  // It may be over again at the next look.
    while (!wasSo && std::time(nullptr) <= deadline) {
        std::this_thread::yield();
        wasSo = isSo();
    }
    EXPECT_TRUE(wasSo) << "waited " << kPatienceSeconds << " s for " << what;
}

/**
 * Blocks until a thread of this process, or the main thread of another, sleeps, be it for a lock, a
 * condition or a time.
 */
inline void waitUntilAsleep(pid_t thread) {
    // "tid (name) S ..."; a name may hold blanks and brackets.
    // Through the task, since an emulator answers for the process itself.
    const std::string id = std::to_string(thread);
    waitUntil("thread " + id + " to sleep", [&id] {
        std::string text;
        std::ifstream file("/proc/" + id + "/task/" + id + "/stat");
        std::getline(file, text);
        return text.find(") S", text.rfind(')')) != std::string::npos;
    });
}

/** Runs `operation` on a thread of its own and returns once that thread sleeps. */
template <typename OPERATION>
auto startAndWaitUntilAsleep(OPERATION operation) {
    std::promise<pid_t> thread;
    auto result = std::async(std::launch::async, [&thread, operation = std::move(operation)] {
        thread.set_value(gettid());
        return operation();
    });
    waitUntilAsleep(thread.get_future().get());
    return result;
}
