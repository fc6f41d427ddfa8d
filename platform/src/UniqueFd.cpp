// SPDX-License-Identifier: Apache-2.0
#include "UniqueFd.h"

#include <pthread.h>
#include <utils/Mutex.h>

#include <atomic>
#include <set>

namespace android {
namespace transport {
namespace {

std::atomic<uint32_t> gGeneration{0};

/**
 * The open descriptors that a child must not share. The lock is held across a fork, so the child
 * finds the set whole.
 */
struct Unshared {
    Mutex lock;
    std::set<int> fds GUARDED_BY(lock);
};

Unshared& unshared();

void closeInChild() RELEASE(unshared().lock) {
    gGeneration.fetch_add(1);
    for (const int fd : unshared().fds) {
        ::close(fd);
    }
    unshared().fds.clear();
    unshared().lock.unlock();
}

Unshared& unshared() {
    static Unshared* const instance = [] {
        ::pthread_atfork([]() ACQUIRE(unshared().lock) { unshared().lock.lock(); },
                         []() RELEASE(unshared().lock) { unshared().lock.unlock(); }, closeInChild);
        return new Unshared();
    }();
    return *instance;
}

}  // namespace

uint32_t forkGeneration() {
    return gGeneration.load(std::memory_order_relaxed);
}

ForkSafeFd::ForkSafeFd(int fd) : mFd(fd), mGeneration(forkGeneration()) {
    if (mFd >= 0) {
        const Mutex::Autolock lock(unshared().lock);
        unshared().fds.insert(mFd);
    }
}

ForkSafeFd::~ForkSafeFd() {
    if (mFd >= 0) {
        const Mutex::Autolock lock(unshared().lock);
        if (mGeneration == gGeneration.load() && unshared().fds.erase(mFd) > 0) {
            ::close(mFd);
        }
    }
}

}  // namespace transport
}  // namespace android
