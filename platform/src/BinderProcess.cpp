// SPDX-License-Identifier: Apache-2.0
#include "BinderProcess.h"

#include <cstdlib>

#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>

namespace android {
namespace transport {
namespace {

/** Whether this thread is inside a gate: what it runs may end the process. */
thread_local bool tIsInside = false;

}  // namespace

BinderProcess& BinderProcess::self() {
    // Leaked on purpose, also what a fork leaves behind: its locks may be held by threads that the
    // child does not have.
    static BinderProcess* current = nullptr;
    const Mutex::Autolock noFork(forkMutex());
    if (current == nullptr || current->mGeneration != forkGeneration()) {
        current = new BinderProcess();
        current->incStrong(current);
    }
    return *current;
}

void BinderProcess::startPool() {
    const Mutex::Autolock lock(mLock);
    if (!std::exchange(mHasPool, true)) {
        mGate.open();
        std::atexit([] { self().gate().close(); });
        for (const auto& [session, known] : mSessions) {
            known.session->startReading();
        }
    }
}

void Gate::open() {
    const Mutex::Autolock lock(mLock);
    mIsOpen = true;
    mChanged.notify_all();
}

void Gate::close() {
    Mutex::Autolock lock(mLock);
    mIsOpen = false;
    mChanged.wait(lock.native(), [this]() REQUIRES(mLock) { return mInside <= size_t{tIsInside}; });
}

void Gate::lock() {
    Mutex::Autolock lock(mLock);
    mChanged.wait(lock.native(), [this]() REQUIRES(mLock) { return mIsOpen; });
    ++mInside;
    tIsInside = true;
}

void Gate::unlock() {
    const Mutex::Autolock lock(mLock);
    --mInside;
    tIsInside = false;
    if (!mIsOpen) {
        mChanged.notify_all();
    }
}

}  // namespace transport

sp<ProcessState> ProcessState::self() {
    static const sp<ProcessState>* const state = new sp<ProcessState>(new ProcessState());
    return *state;
}

void ProcessState::startThreadPool() {
    transport::BinderProcess::self().startPool();
}

IPCThreadState* IPCThreadState::self() {
    static IPCThreadState* const state = new IPCThreadState();
    return state;
}

pid_t IPCThreadState::getCallingPid() const {
    const ucred* const caller = transport::currentCaller();
    return caller != nullptr ? caller->pid : ::getpid();
}

void IPCThreadState::joinThreadPool(bool /*isMain*/) {
    transport::BinderProcess::self().startPool();
    for (;;) {
        ::pause();
    }
}

}  // namespace android
