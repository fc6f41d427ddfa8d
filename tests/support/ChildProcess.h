// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <vector>

/**
 * A program that a test starts, by posix_spawn and never by a bare fork. Its standard input and
 * output lead to the test; its standard error is kept, and shown when the test has failed. A
 * program still running at the end is killed. When the environment variable DISPLAYENGINE_EMULATOR
 * is set, its words stand before the program, so that programs built for another machine run. Used
 * by one thread at a time.
 */
class ChildProcess {
public:
    /**
     * Starts `program`. `environment` holds NAME=VALUE entries on top of the test's own. A program
     * that cannot be started says so on its standard error and ends with 127 (126 for no program).
     */
    explicit ChildProcess(const std::string& program,
                          const std::vector<std::string>& arguments = {},
                          const std::vector<std::string>& environment = {});
    ChildProcess(ChildProcess&&) = delete;
    ~ChildProcess();

    /** The test's own executable, to be started with arguments that make it another program. */
    static std::string ownPath();

    /** How long a program may be silent, or take to end; then the test fails. */
    static inline std::chrono::seconds patience{30};

    pid_t pid() const { return mPid; }

    /** Writes a line to the program's standard input. */
    void writeLine(const std::string& line);

    /** The next line of its standard output without the line end, none at the end of the output. */
    std::optional<std::string> readLine();
    /** Skips lines up to and including `line`; false when the output ends before. */
    bool waitForLine(const std::string& line);

    void kill(int signal = SIGKILL);
    /** Waits for the end: the exit status, or the negated number of the signal that ended it. */
    int wait();
    /** What it has written to standard error so far. */
    std::string standardError() const;

private:
    pid_t mPid = -1;
    int mSocket = -1;  // Its standard input and output.
    int mError = -1;
    std::string mUnread;
    std::optional<int> mResult;
};
