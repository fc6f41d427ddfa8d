// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <cstdint>
#include <utility>

#include "Mutex.h"

namespace android::transport {

/** Owns one file descriptor. */
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : mFd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : mFd(other.release()) {}
    ~UniqueFd() {
        if (mFd >= 0) {
            ::close(mFd);
        }
    }
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        std::swap(mFd, other.mFd);
        return *this;
    }

    int get() const { return mFd; }
    bool ok() const { return mFd >= 0; }
    int release() { return std::exchange(mFd, -1); }

private:
    int mFd = -1;
};

/**
 * How many forks lie between the program's start and this process. State of another generation
 * belongs to an ancestor and must not be used: it is not this process that the peers know.
 */
uint32_t forkGeneration();

/** Held by whoever forks: a descriptor opened under it is in no child before it has an owner. */
Mutex& forkMutex();

/**
 * Owns a descriptor that a forked child must not share, since a socket or a lock that the child
 * holds open makes its dead parent look alive. The child closes it as it starts, and must not use
 * what its parent had.
 */
class ForkSafeFd : public UniqueFd {
public:
    ForkSafeFd() = default;
    /** Takes over a descriptor that was opened under the same hold of the mutex. */
    explicit ForkSafeFd(int fd) REQUIRES(forkMutex());
    ForkSafeFd(ForkSafeFd&&) = default;
    ForkSafeFd& operator=(ForkSafeFd&&) = default;
    /** Takes the mutex unless it owns nothing. */
    ~ForkSafeFd();

private:
    uint32_t mGeneration = forkGeneration();
};

}  // namespace android::transport
