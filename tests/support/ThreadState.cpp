// SPDX-License-Identifier: Apache-2.0
#include "support/ThreadState.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <fstream>
#include <thread>

void waitUntil(std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
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

pid_t ownThread() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

void waitUntilAsleep(pid_t thread) {
    // "tid (name) S ..."; a name may hold blanks and brackets.
    // Through the task, since an emulator answers for the process itself.
    const std::string id = std::to_string(thread);
    const std::string path = "/proc/" + id + "/task/" + id + "/stat";
    const std::time_t deadline = std::time(nullptr) + kPatienceSeconds;
    for (std::string text; text.empty() || text.compare(text.rfind(')'), 3, ") S") != 0;) {
        if (std::time(nullptr) > deadline) {
            ADD_FAILURE() << "waited " << kPatienceSeconds << " s for thread " << id << " to sleep";
            return;
        }
        std::this_thread::yield();
        std::ifstream file(path);
        std::getline(file, text);
    }
}
