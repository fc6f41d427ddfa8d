// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

namespace android {

/** The calling thread's side of binder. */
class IPCThreadState {
public:
    static IPCThreadState* self();

    /**
     * The process that made the call which this thread is running; the own one outside of a call.
     */
    pid_t getCallingPid() const;

    /** Starts the thread pool if need be (see ProcessState), and never returns. */
    void joinThreadPool(bool isMain = true);
};

}  // namespace android
