#pragma once

#include <unistd.h>

#include <utility>

namespace android {
namespace transport {

/// Owns one file descriptor.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : mFd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : mFd(other.release()) {}
    ~UniqueFd() { reset(); }

    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }

    int get() const { return mFd; }
    bool ok() const { return mFd >= 0; }
    int release() { return std::exchange(mFd, -1); }
    void reset(int fd = -1) {
        if (mFd >= 0) {
            ::close(mFd);
        }
        mFd = fd;
    }

private:
    int mFd = -1;
};

}  // namespace transport
}  // namespace android
