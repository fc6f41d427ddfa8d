// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace bench {

/** This program once more, as the other process of a measurement. It is killed with the object. */
class Peer {
public:
    /**
     * Starts the program with `arguments`; `socket` is its standard input. Ends this process when
     * that fails.
     */
    explicit Peer(const std::vector<std::string>& arguments, int socket = -1);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

private:
    pid_t mPid = -1;
};

}  // namespace bench
