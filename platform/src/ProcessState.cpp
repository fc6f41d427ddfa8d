// SPDX-License-Identifier: Apache-2.0
#include <binder/IPCThreadState.h>
#include <binder/ProcessState.h>

#include <unistd.h>

#include "BinderProcess.h"

namespace android {

using transport::BinderProcess;

sp<ProcessState> ProcessState::self() {
    static const sp<ProcessState>* const state = new sp<ProcessState>(new ProcessState());
    return *state;
}

void ProcessState::startThreadPool() {
    BinderProcess::self().stopPoolAtExit();
    BinderProcess::self().pool().start();
}

IPCThreadState* IPCThreadState::self() {
    static IPCThreadState* const state = new IPCThreadState();
    return state;
}

pid_t IPCThreadState::getCallingPid() const {
    const transport::CallerIdentity& caller = transport::currentCaller();
    return caller.known ? caller.pid : ::getpid();
}

uid_t IPCThreadState::getCallingUid() const {
    const transport::CallerIdentity& caller = transport::currentCaller();
    return caller.known ? caller.uid : ::getuid();
}

void IPCThreadState::joinThreadPool(bool /*isMain*/) {
    BinderProcess::self().stopPoolAtExit();
    BinderProcess::self().pool().join();
}

}  // namespace android
