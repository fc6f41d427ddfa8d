// SPDX-License-Identifier: Apache-2.0
#include "support/ChildProcess.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

namespace {

using Strings = std::vector<std::string>;

/** The words that start the program: the environment's, the emulator's and its own. */
Strings commandFor(const std::string& program, const Strings& arguments,
                   const Strings& environment) {
    Strings command = {"/usr/bin/env"};
    command.insert(command.end(), environment.begin(), environment.end());
    const char* const emulator = std::getenv("DISPLAYENGINE_EMULATOR");
    std::istringstream words(emulator != nullptr ? emulator : "");
    command.insert(command.end(), std::istream_iterator<std::string>(words), {});
    command.push_back(program);
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

/** Whether the file becomes readable in time. */
bool isReadable(int file) {
    pollfd waited{file, POLLIN, 0};
    const auto limitMs = static_cast<int>(ChildProcess::patience.count()) * 1000;
    return TEMP_FAILURE_RETRY(poll(&waited, 1, limitMs)) > 0;
}

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const std::vector<std::string>& environment) {
    // A socket: writing to it when the program has ended raises no signal.
    int ends[2] = {-1, -1};
    mError = memfd_create("standard-error", MFD_CLOEXEC);
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0 || mError < 0) {
        ADD_FAILURE() << "no descriptors: " << std::strerror(errno);
    }
    mSocket = ends[1];

    Strings command = commandFor(program, arguments, environment);
    std::vector<char*> pointers(command.size() + 1, nullptr);
    std::transform(command.begin(), command.end(), pointers.begin(),
                   [](std::string& word) { return word.data(); });
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[0], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, mError, STDERR_FILENO);
    const int error =
        posix_spawnp(&mPid, pointers.front(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[0]);
    if (error != 0) {
        ADD_FAILURE() << "cannot start " << program << ": " << std::strerror(error);
        mResult = 127;
    }
}

ChildProcess::~ChildProcess() {
    kill();
    wait();
    // A program that is killed cannot report by its exit status what a sanitizer has found.
    EXPECT_EQ(standardError().find("Sanitizer"), std::string::npos) << "in process " << mPid;
    if (testing::Test::HasFailure()) {
        std::cerr << "standard error of process " << mPid << ":\n" << standardError();
    }
    close(mSocket);
    close(mError);
}

std::string ChildProcess::ownPath() {
    return std::filesystem::read_symlink("/proc/self/exe");
}

void ChildProcess::writeLine(const std::string& line) {
    const std::string text = line + "\n";
    // A program that has ended is found out by what it no longer says.
    [[maybe_unused]] const ssize_t sent = send(mSocket, text.data(), text.size(), MSG_NOSIGNAL);
}

std::optional<std::string> ChildProcess::readLine() {
    size_t end = 0;
    while ((end = mUnread.find('\n')) == std::string::npos) {
        if (!isReadable(mSocket)) {
            ADD_FAILURE() << "process " << mPid << " said nothing for too long";
            return std::nullopt;
        }
        char part[4096];
        const ssize_t size = TEMP_FAILURE_RETRY(read(mSocket, part, sizeof(part)));
        if (size <= 0) {
            return std::nullopt;
        }
        mUnread.append(part, static_cast<size_t>(size));
    }
    const std::string line = mUnread.substr(0, end);
    mUnread.erase(0, end + 1);
    return line;
}

bool ChildProcess::waitForLine(const std::string& line) {
    std::optional<std::string> read = readLine();
    while (read.has_value() && *read != line) {
        read = readLine();
    }
    return read.has_value();
}

void ChildProcess::kill(int signal) {
    if (!mResult.has_value()) {
        ::kill(mPid, signal);
    }
}

int ChildProcess::wait() {
    if (!mResult.has_value()) {
        // An emulator may have no such descriptor; then the wait is the runner's to bound.
        const auto process = static_cast<int>(syscall(SYS_pidfd_open, mPid, 0));
        if (process >= 0 && !isReadable(process)) {
            ADD_FAILURE() << "process " << mPid << " did not end";
            kill();
        }
        close(process);
        int status = 0;
        waitpid(mPid, &status, 0);
        mResult = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return *mResult;
}

std::string ChildProcess::standardError() const {
    std::ifstream text("/proc/self/fd/" + std::to_string(mError));
    return {std::istreambuf_iterator<char>(text), {}};
}
