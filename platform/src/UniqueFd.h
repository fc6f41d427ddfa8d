// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

#include <cstdint>
#include <utility>

namespace android {
namespace transport {

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

/**
 * Owns a descriptor that a forked child must not share, since a peer takes a connection that the
 * child holds open for a living process. The child closes it as it starts.
 */
class ForkSafeFd {
public:
    ForkSafeFd() = default;
    explicit ForkSafeFd(int fd);
    ForkSafeFd(ForkSafeFd&& other) noexcept { *this = std::move(other); }
    ~ForkSafeFd();
    ForkSafeFd& operator=(ForkSafeFd&& other) noexcept {
        std::swap(mFd, other.mFd);
        std::swap(mGeneration, other.mGeneration);
        return *this;
    }

    /** The descriptor; meaningless in another generation than the one it was made in. */
    int get() const { return mFd; }
    bool ok() const { return mFd >= 0; }
    uint32_t generation() const { return mGeneration; }

private:
    int mFd = -1;
    uint32_t mGeneration = 0;
};

}  // namespace transport
}  // namespace android
