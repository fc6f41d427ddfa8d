#pragma once

#include <sys/types.h>

#include <cstdint>

namespace android {
namespace transport {

class Connection;

/// Who made the call that a thread is running.
struct CallerIdentity {
    bool known = false;  ///< false: the thread runs no call
    pid_t pid = 0;
    uid_t uid = 0;
};

/// A call from a peer for as long as this thread runs it. These stand on the thread's stack, the
/// innermost first, and tell which of a peer's waiting calls an outgoing one is made for.
class ServedCall {
public:
    ServedCall(const Connection* connection, uint64_t callId, CallerIdentity caller);
    ~ServedCall();

    /// The innermost two-way call of the peer that this thread is running, 0 for none.
    static uint64_t innermostFrom(const Connection* connection);
    static const CallerIdentity& caller();

private:
    ServedCall(const ServedCall&) = delete;
    ServedCall& operator=(const ServedCall&) = delete;

    const Connection* const mConnection;
    const uint64_t mCallId;  // 0 for a oneway call
    const ServedCall* const mOuter;
    const CallerIdentity mOuterCaller;
};

}  // namespace transport
}  // namespace android
