// SPDX-License-Identifier: Apache-2.0
#include "UniqueFd.h"

#include <pthread.h>

#include <atomic>
#include <set>

namespace android::transport {
namespace {

std::atomic<uint32_t> gGeneration{0};
Mutex gForkMutex;

/** The open descriptors that a child must not share; guarded by the mutex. */
std::set<int>& openFds();

void closeInChild() RELEASE(gForkMutex) {
    gGeneration.fetch_add(1);
    for (const int fd : openFds()) {
        ::close(fd);
    }
    openFds().clear();
    gForkMutex.unlock();
}

std::set<int>& openFds() {
    static std::set<int>* const instance = [] {
        ::pthread_atfork([]() ACQUIRE(gForkMutex) { gForkMutex.lock(); },
                         []() RELEASE(gForkMutex) { gForkMutex.unlock(); }, closeInChild);
        return new std::set<int>();
    }();
    return *instance;
}

}  // namespace

uint32_t forkGeneration() {
    return gGeneration.load(std::memory_order_relaxed);
}

Mutex& forkMutex() {
    return gForkMutex;
}

ForkSafeFd::ForkSafeFd(int fd) : UniqueFd(fd) {
    if (ok()) {
        openFds().insert(fd);
    }
}

ForkSafeFd::~ForkSafeFd() {
    if (ok()) {
        const Mutex::Autolock lock(gForkMutex);
        const int fd = release();
        if (mGeneration == forkGeneration()) {
            openFds().erase(fd);
            ::close(fd);
        }
    }
}

}  // namespace android::transport
