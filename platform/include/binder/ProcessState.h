#pragma once

#include <cstddef>

#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

/// The process's side of binder: its thread pool.
class ProcessState : public virtual RefBase {
public:
    static sp<ProcessState> self();

    /// Starts the pool that runs incoming calls: one thread, and more as they are needed. Registers
    /// an exit handler that stops taking up calls and waits for those that are running; outgoing
    /// calls go on working after it. Only the first call does anything.
    void startThreadPool();

    /// At most this many threads are started, 1 to 15; BAD_VALUE above. 0 counts as 1.
    status_t setThreadPoolMaxThreadCount(size_t maxThreads);

private:
    ProcessState() = default;
    ~ProcessState() override = default;
};

}  // namespace android
