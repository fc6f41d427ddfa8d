#include <binder/ProcessState.h>

#include "BinderProcess.h"

namespace android {

sp<ProcessState> ProcessState::self() {
    static const sp<ProcessState>* const state = new sp<ProcessState>(new ProcessState());
    return *state;
}

void ProcessState::startThreadPool() {
    transport::BinderProcess& process = transport::BinderProcess::self();
    process.stopPoolAtExit();
    process.pool().start();
}

status_t ProcessState::setThreadPoolMaxThreadCount(size_t maxThreads) {
    if (maxThreads > transport::ThreadPool::kMaxThreads) {
        return BAD_VALUE;
    }
    transport::BinderProcess::self().pool().setMaxThreads(maxThreads);
    return OK;
}

}  // namespace android
