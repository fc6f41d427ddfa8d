// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

namespace android {

/** The process's side of binder: its thread pool. */
class ProcessState : public virtual RefBase {
public:
    static sp<ProcessState> self();

    /**
     * Has incoming calls and events run from now on: each call on a thread of its line, the events
     * of a session one at a time on a thread of the session. Registers an exit handler that lets
     * nothing more be run and waits for what is running; outgoing calls go on working after it.
     * Only the first call does anything.
     */
    void startThreadPool();

private:
    ProcessState() = default;
    ~ProcessState() override = default;
};

}  // namespace android
