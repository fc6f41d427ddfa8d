#include "ForkSafeFd.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <set>
#include <utility>

namespace android {
namespace transport {
namespace {

std::atomic<uint32_t> gGeneration{0};

/// The descriptors of this generation. Its lock is held across a fork, so the child finds the set
/// whole.
class OpenFds {
public:
    static OpenFds& self() {
        static OpenFds* const fds = new OpenFds();
        return *fds;
    }

    void add(int fd) {
        const std::lock_guard<std::mutex> lock(mLock);
        mFds.insert(fd);
    }

    void closeOne(int fd, uint32_t generation) {
        const std::lock_guard<std::mutex> lock(mLock);
        if (generation == gGeneration.load() && mFds.erase(fd) > 0) {
            ::close(fd);
        }
    }

private:
    OpenFds() {
        ::pthread_atfork([] { self().mLock.lock(); }, [] { self().mLock.unlock(); },
                         [] { self().enterChild(); });
    }

    void enterChild() {
        gGeneration.fetch_add(1);
        for (const int fd : mFds) {
            ::close(fd);
        }
        mFds.clear();
        mLock.unlock();
    }

    std::mutex mLock;
    std::set<int> mFds;  // guarded by mLock
};

}  // namespace

uint32_t forkGeneration() {
    return gGeneration.load(std::memory_order_relaxed);
}

ForkSafeFd::ForkSafeFd(int fd) : mFd(fd), mGeneration(forkGeneration()) {
    if (mFd >= 0) {
        OpenFds::self().add(mFd);
    }
}

ForkSafeFd::ForkSafeFd(ForkSafeFd&& other) noexcept
    : mFd(std::exchange(other.mFd, -1)), mGeneration(other.mGeneration) {}

ForkSafeFd& ForkSafeFd::operator=(ForkSafeFd&& other) noexcept {
    std::swap(mFd, other.mFd);
    std::swap(mGeneration, other.mGeneration);
    return *this;
}

void ForkSafeFd::close() {
    if (mFd >= 0) {
        OpenFds::self().closeOne(mFd, mGeneration);
        mFd = -1;
    }
}

}  // namespace transport
}  // namespace android
