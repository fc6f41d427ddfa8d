#include "ServedCall.h"

namespace android {
namespace transport {
namespace {

// Plain data: a thread that calls while the process exits must not find it destroyed.
thread_local const ServedCall* tInnermost = nullptr;
thread_local CallerIdentity tCaller;

}  // namespace

ServedCall::ServedCall(const Connection* connection, uint64_t callId, CallerIdentity caller)
    : mConnection(connection), mCallId(callId), mOuter(tInnermost), mOuterCaller(tCaller) {
    tInnermost = this;
    tCaller = caller;
}

ServedCall::~ServedCall() {
    tInnermost = mOuter;
    tCaller = mOuterCaller;
}

uint64_t ServedCall::innermostFrom(const Connection* connection) {
    for (const ServedCall* call = tInnermost; call != nullptr; call = call->mOuter) {
        if (call->mConnection == connection && call->mCallId != 0) {
            return call->mCallId;
        }
    }
    return 0;
}

const CallerIdentity& ServedCall::caller() {
    return tCaller;
}

}  // namespace transport
}  // namespace android
