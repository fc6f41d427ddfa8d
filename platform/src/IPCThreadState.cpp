#include <binder/IPCThreadState.h>

#include <unistd.h>

#include "BinderProcess.h"
#include "ServedCall.h"

namespace android {

using transport::BinderProcess;
using transport::CallerIdentity;
using transport::ServedCall;

IPCThreadState* IPCThreadState::self() {
    static IPCThreadState* const state = new IPCThreadState();
    return state;
}

pid_t IPCThreadState::getCallingPid() const {
    const CallerIdentity& caller = ServedCall::caller();
    return caller.known ? caller.pid : ::getpid();
}

uid_t IPCThreadState::getCallingUid() const {
    const CallerIdentity& caller = ServedCall::caller();
    return caller.known ? caller.uid : ::getuid();
}

void IPCThreadState::joinThreadPool(bool /*isMain*/) {
    BinderProcess& process = BinderProcess::self();
    process.stopPoolAtExit();
    process.pool().join();
}

}  // namespace android
