// SPDX-License-Identifier: Apache-2.0
#include "UniqueFd.h"

#include <pthread.h>

#include <atomic>
#include <set>

namespace android::transport {
namespace {

std::atomic<uint32_t> gGeneration{0};
Mutex gForkMutex;

/** The open descriptors that a child must not share. */
std::set<int>& openFds() REQUIRES(gForkMutex) {
    static std::set<int>* const instance = [] {
        ::pthread_atfork([]() ACQUIRE(gForkMutex) { gForkMutex.lock(); },
                         []() RELEASE(gForkMutex) { gForkMutex.unlock(); },
                         []() RELEASE(gForkMutex) {
                             gGeneration.fetch_add(1);
                             for (const int fd : *instance) {
                                 ::close(fd);
                             }
                             instance->clear();
                             gForkMutex.unlock();
                         });
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
