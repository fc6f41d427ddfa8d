#pragma once

#include <cstdint>

namespace android {
namespace transport {

/// How many forks lie between the program's start and this process. State of another generation
/// belongs to an ancestor and must not be used: it is not this process that the peers know.
uint32_t forkGeneration();

/// Owns a descriptor that a forked child must not share, since a peer takes a connection that the
/// child holds open for a living process. The child closes it as it starts.
class ForkSafeFd {
public:
    ForkSafeFd() = default;
    explicit ForkSafeFd(int fd);
    ForkSafeFd(ForkSafeFd&& other) noexcept;
    ~ForkSafeFd() { close(); }

    ForkSafeFd& operator=(ForkSafeFd&& other) noexcept;

    /// The descriptor; meaningless in another generation than the one it was made in.
    int get() const { return mFd; }
    bool ok() const { return mFd >= 0; }
    uint32_t generation() const { return mGeneration; }

private:
    void close();

    int mFd = -1;
    uint32_t mGeneration = 0;
};

}  // namespace transport
}  // namespace android
