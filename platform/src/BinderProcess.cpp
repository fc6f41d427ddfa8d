// SPDX-License-Identifier: Apache-2.0
#include "BinderProcess.h"

#include <cstdlib>

#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>

namespace android {
namespace transport {
namespace {

/** Passes that this thread holds: what it runs may end the process. */
thread_local size_t tPasses = 0;

}  // namespace

BinderProcess& BinderProcess::self() {
    // Leaked on purpose, also what a fork leaves behind: its locks may be held by threads that the
    // child does not have.
    static std::atomic<BinderProcess*> current{nullptr};
    BinderProcess* process = current.load(std::memory_order_acquire);
    while (process == nullptr || process->mGeneration != forkGeneration()) {
        auto* const fresh = new BinderProcess();
        fresh->incStrong(fresh);
        if (current.compare_exchange_strong(process, fresh)) {
            return *fresh;
        }
        fresh->decStrong(fresh);
    }
    return *process;
}

void BinderProcess::openGate() {
    const Mutex::Autolock lock(mLock);
    const Mutex::Autolock gateLock(mGateLock);
    if (mGate == kNotYetOpen) {
        mGate = kOpen;
        mGateChanged.notify_all();
        std::atexit([] { self().closeGate(); });
        for (const Known& known : mSessions) {
            known.session->startReading();
        }
    }
}

void BinderProcess::closeGate() {
    Mutex::Autolock lock(mGateLock);
    mGate = kClosed;
    mGateChanged.wait(lock.native(), [this]() REQUIRES(mGateLock) { return mInside <= tPasses; });
}

BinderProcess::Pass::Pass(BinderProcess& process) : mProcess(process) {
    Mutex::Autolock lock(mProcess.mGateLock);
    mProcess.mGateChanged.wait(
        lock.native(), [this]() REQUIRES(mProcess.mGateLock) { return mProcess.mGate == kOpen; });
    ++mProcess.mInside;
    ++tPasses;
}

BinderProcess::Pass::~Pass() {
    const Mutex::Autolock lock(mProcess.mGateLock);
    --mProcess.mInside;
    --tPasses;
    if (mProcess.mGate == kClosed) {
        mProcess.mGateChanged.notify_all();
    }
}

}  // namespace transport

sp<ProcessState> ProcessState::self() {
    static const sp<ProcessState>* const state = new sp<ProcessState>(new ProcessState());
    return *state;
}

void ProcessState::startThreadPool() {
    transport::BinderProcess::self().openGate();
}

IPCThreadState* IPCThreadState::self() {
    static IPCThreadState* const state = new IPCThreadState();
    return state;
}

pid_t IPCThreadState::getCallingPid() const {
    const ucred* const caller = transport::currentCaller();
    return caller != nullptr ? caller->pid : ::getpid();
}

uid_t IPCThreadState::getCallingUid() const {
    const ucred* const caller = transport::currentCaller();
    return caller != nullptr ? caller->uid : ::getuid();
}

void IPCThreadState::joinThreadPool(bool /*isMain*/) {
    transport::BinderProcess::self().openGate();
    for (;;) {
        ::pause();
    }
}

}  // namespace android
