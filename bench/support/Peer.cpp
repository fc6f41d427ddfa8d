// SPDX-License-Identifier: Apache-2.0
#include "support/Peer.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace bench {

Peer::Peer(const std::vector<std::string>& arguments, int socket) {
    std::string program = "/proc/self/exe";
    std::vector<char*> words{program.data()};
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (socket >= 0) {
        posix_spawn_file_actions_adddup2(&actions, socket, STDIN_FILENO);
    }
    if (posix_spawn(&mPid, program.c_str(), &actions, nullptr, words.data(), environ) != 0) {
        std::perror(program.c_str());
        std::exit(2);
    }
    posix_spawn_file_actions_destroy(&actions);
}

Peer::~Peer() {
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
}

}  // namespace bench
