#include <binder/IPCThreadState.h>

#include <unistd.h>

#include "BinderProcess.h"
#include "ServedCall.h"

namespace android {

using transport::BinderProcess;
using transport::CallerIdentity;
using transport::ServedCall;

namespace {

// A token is the caller as it was: its user in the upper half, its process in the lower one. No
// process has the number 0, which therefore stands for "none".
int64_t packToken(const CallerIdentity& caller) {
    if (!caller.known) {
        return 0;
    }
    return static_cast<int64_t>((static_cast<uint64_t>(caller.uid) << 32) |
                                static_cast<uint32_t>(caller.pid));
}

}  // namespace

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

int64_t IPCThreadState::clearCallingIdentity() {
    const int64_t token = packToken(ServedCall::caller());
    ServedCall::caller() = {};
    return token;
}

void IPCThreadState::restoreCallingIdentity(int64_t token) {
    CallerIdentity& caller = ServedCall::caller();
    caller.known = token != 0;
    caller.uid = static_cast<uid_t>(static_cast<uint64_t>(token) >> 32);
    caller.pid = static_cast<pid_t>(token & 0xffffffff);
}

bool IPCThreadState::isServingCall() const {
    return ServedCall::any();
}

void IPCThreadState::joinThreadPool(bool /*isMain*/) {
    BinderProcess& process = BinderProcess::self();
    process.stopPoolAtExit();
    process.pool().join();
}

}  // namespace android
