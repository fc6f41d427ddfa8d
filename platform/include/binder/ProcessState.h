// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/RefBase.h>

namespace android {

/** The process's side of binder: its thread pool. */
class ProcessState : public virtual RefBase {
public:
    static sp<ProcessState> self();

    /**
     * Starts the pool that runs incoming calls: one thread, and more as they are needed. Registers
     * an exit handler that stops taking up calls and waits for those that are running; outgoing
     * calls go on working after it. Only the first call does anything.
     */
    void startThreadPool();

private:
    ProcessState() = default;
    ~ProcessState() override = default;
};

}  // namespace android
