// SPDX-License-Identifier: Apache-2.0
#include "support/ChildProcess.h"

#include <fcntl.h>
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
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

extern char** environ;

namespace {

using Strings = std::vector<std::string>;

/** The words before the program and the program itself. */
Strings commandFor(const std::string& program, const Strings& environment) {
    Strings command;
    if (!environment.empty()) {
        command.emplace_back("env");
        command.insert(command.end(), environment.begin(), environment.end());
    }
    const char* const emulator = std::getenv("DISPLAYENGINE_EMULATOR");
    std::istringstream words(emulator != nullptr ? emulator : "");
    command.insert(command.end(), std::istream_iterator<std::string>(words), {});
    command.push_back(program);
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
    int input[2] = {-1, -1};
    int output[2] = {-1, -1};
    mError = memfd_create("standard-error", MFD_CLOEXEC);
    // A socket for the input: writing to it when the program has ended raises no signal.
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input) != 0 ||
        pipe2(output, O_CLOEXEC) != 0 || mError < 0) {
        ADD_FAILURE() << "no descriptors: " << std::strerror(errno);
    }
    mInput = input[1];
    mOutput = output[0];

    Strings command = commandFor(program, environment);
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers(command.size() + 1, nullptr);
    std::transform(command.begin(), command.end(), pointers.begin(),
                   [](std::string& word) { return word.data(); });
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, mError, STDERR_FILENO);
    const int error =
        posix_spawnp(&mPid, pointers.front(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    if (error != 0) {
        ADD_FAILURE() << "cannot start " << command.front() << ": " << std::strerror(error);
        mPid = -1;
        mResult = 127;
    }
}

ChildProcess::~ChildProcess() {
    kill(SIGKILL);
    wait();
    // A program that is killed cannot report by its exit status what a sanitizer has found.
    if (standardError().find("Sanitizer") != std::string::npos) {
        ADD_FAILURE() << "a sanitizer has found a fault in process " << mPid;
    }
    if (testing::Test::HasFailure()) {
        std::cerr << "standard error of process " << mPid << ":\n" << standardError();
    }
    closeInput();
    close(mOutput);
    close(mError);
}

std::string ChildProcess::ownPath() {
    char path[4096];
    const ssize_t size = readlink("/proc/self/exe", path, sizeof(path));
    return std::string(path, size > 0 ? static_cast<size_t>(size) : 0);
}

void ChildProcess::writeLine(const std::string& line) {
    const std::string text = line + "\n";
    // A program that has ended is found out by what it no longer says.
    [[maybe_unused]] const ssize_t sent = send(mInput, text.data(), text.size(), MSG_NOSIGNAL);
}

void ChildProcess::closeInput() {
    if (mInput >= 0) {
        close(mInput);
        mInput = -1;
    }
}

std::optional<std::string> ChildProcess::readLine() {
    for (;;) {
        const size_t end = mUnread.find('\n');
        if (end != std::string::npos) {
            const std::string line = mUnread.substr(0, end);
            mUnread.erase(0, end + 1);
            return line;
        }
        if (!isReadable(mOutput)) {
            ADD_FAILURE() << "process " << mPid << " said nothing for too long";
            return std::nullopt;
        }
        char part[4096];
        const ssize_t size = read(mOutput, part, sizeof(part));
        if (size > 0) {
            mUnread.append(part, static_cast<size_t>(size));
        } else if (size == 0 || errno != EINTR) {
            return std::nullopt;
        }
    }
}

bool ChildProcess::waitForLine(const std::string& line) {
    std::optional<std::string> read;
    do {
        read = readLine();
    } while (read.has_value() && *read != line);
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
            kill(SIGKILL);
        }
        close(process);
        int status = 0;
        const bool isKnown = TEMP_FAILURE_RETRY(waitpid(mPid, &status, 0)) == mPid;
        mResult = !isKnown ? 127 : WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return *mResult;
}

std::string ChildProcess::standardError() const {
    std::ifstream text("/proc/self/fd/" + std::to_string(mError));
    return {std::istreambuf_iterator<char>(text), {}};
}
