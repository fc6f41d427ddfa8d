// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

/** The processes of a measurement: this one, and another one beside it. */
namespace bench {

/** Ends the process with the reason, unless `isGood`. */
void require(bool isGood, const char* what);

/**
 * Makes a runtime directory of this process's own, names it in the environment for this process and
 * its children, and removes it at exit.
 */
void useRuntimeDirectory();

/** Runs the program's benchmarks by the options of Google Benchmark. Returns the exit code. */
int run(int argc, char** argv);

/** The file name of this program. */
std::string thisProgram();

/** The other process of a measurement. Its output is discarded; it is killed with the object. */
class Peer {
public:
    /**
     * Starts `program` with `arguments`. Its standard input is `socket`, or empty for -1. Ends this
     * process when that fails.
     */
    Peer(std::string program, const std::vector<std::string>& arguments, int socket = -1);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    pid_t pid() const { return mPid; }

private:
    pid_t mPid = -1;
};

}  // namespace bench
