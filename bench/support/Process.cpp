// SPDX-License-Identifier: Apache-2.0
#include "support/Process.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace bench {

namespace {

char gDirectory[] = "/tmp/displayengine-bench-XXXXXX";

void removeDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(gDirectory, ignored);
}

}  // namespace

void require(bool isGood, const char* what) {
    if (!isGood) {
        std::fprintf(stderr, "%s failed\n", what);
        std::exit(2);
    }
}

void useRuntimeDirectory() {
    require(mkdtemp(gDirectory) != nullptr, "making a runtime directory");
    setenv("DISPLAYENGINE_RUNTIME_DIR", gDirectory, 1);
    std::atexit(&removeDirectory);
}

int run(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}

std::string thisProgram() {
    return std::filesystem::read_symlink("/proc/self/exe");
}

Peer::Peer(std::string program, const std::vector<std::string>& arguments, int socket) {
    std::vector<char*> words{program.data()};
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (socket >= 0) {
        posix_spawn_file_actions_adddup2(&actions, socket, STDIN_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    require(posix_spawn(&mPid, program.c_str(), &actions, nullptr, words.data(), environ) == 0,
            program.c_str());
    posix_spawn_file_actions_destroy(&actions);
}

Peer::~Peer() {
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
}

}  // namespace bench
