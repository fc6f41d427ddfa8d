#pragma once

#include <sys/types.h>

#include <cstdint>

namespace android {

/** The calling thread's side of binder. */
class IPCThreadState {
public:
    static IPCThreadState* self();

    /** The process that made the call which this thread is running; the own one outside of a call.
     */
    pid_t getCallingPid() const;

    /** The user that made the call which this thread is running; the own one outside of a call. */
    uid_t getCallingUid() const;

    /** Makes the own process the caller until restoreCallingIdentity is given the result. */
    int64_t clearCallingIdentity();
    void restoreCallingIdentity(int64_t token);

    /** True while this thread runs a call from another process. */
    bool isServingCall() const;

    /** Gives this thread to the pool, for good: it runs incoming calls and never returns. */
    void joinThreadPool(bool isMain = true);

    /** Calls are sent as they are made; nothing is ever held back. */
    void flushCommands() {}

private:
    IPCThreadState() = default;
    IPCThreadState(const IPCThreadState&) = delete;
    IPCThreadState& operator=(const IPCThreadState&) = delete;
};

}  // namespace android
