// SPDX-License-Identifier: Apache-2.0
#include "support/ChildProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <sstream>

extern char** environ;

namespace {

using Strings = std::vector<std::string>;

std::vector<char*> pointersTo(const Strings& strings) {
    std::vector<char*> pointers;
    for (const std::string& text : strings) {
        pointers.push_back(const_cast<char*>(text.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

/**
 * The test's environment with `changes` in place of what they name. Of two entries of one name an
 * emulator takes another than the C library does, hence no name twice.
 */
Strings environmentWith(Strings changes) {
    const auto isOf = [](const std::string& change, const std::string& entry) {
        return change.compare(0, change.find('=') + 1, entry, 0, entry.find('=') + 1) == 0;
    };
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::none_of(changes.begin(), changes.end(),
                         [&](const std::string& change) { return isOf(change, *entry); })) {
            changes.emplace_back(*entry);
        }
    }
    return changes;
}

Strings emulator() {
    const char* const words = std::getenv("DISPLAYENGINE_EMULATOR");
    std::istringstream stream(words != nullptr ? words : "");
    return Strings{std::istream_iterator<std::string>(stream), {}};
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

    Strings command = emulator();
    command.push_back(program);
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Strings variables = environmentWith(environment);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, mError, STDERR_FILENO);
    const int error = posix_spawnp(&mPid, command.front().c_str(), &actions, nullptr,
                                   pointersTo(command).data(), pointersTo(variables).data());
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
    while (!mResult.has_value()) {
        int status = 0;
        if (waitpid(mPid, &status, 0) == mPid) {
            mResult = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        } else if (errno != EINTR) {
            mResult = 127;
        }
    }
    return *mResult;
}

std::string ChildProcess::standardError() const {
    std::string text;
    char part[4096];
    for (ssize_t size;
         (size = pread(mError, part, sizeof(part), static_cast<off_t>(text.size()))) > 0;) {
        text.append(part, static_cast<size_t>(size));
    }
    return text;
}
