// SPDX-License-Identifier: Apache-2.0
#include "support/ThreadState.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>

pid_t ownThread() {
    return static_cast<pid_t>(syscall(SYS_gettid));
}

void waitUntilAsleep(pid_t thread) {
    // "tid (name) S ..."; a name may hold blanks and brackets.
    // Through the task, since an emulator answers for the process itself.
    const std::string id = std::to_string(thread);
    const std::string path = "/proc/" + id + "/task/" + id + "/stat";
    for (std::string text; text.empty() || text.compare(text.rfind(')'), 3, ") S") != 0;) {
        std::this_thread::yield();
        std::ifstream file(path);
        std::getline(file, text);
    }
}
