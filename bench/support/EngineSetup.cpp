// SPDX-License-Identifier: Apache-2.0
#include "support/EngineSetup.h"

#include <android/log.h>
#include <binder/IServiceManager.h>
#include <utils/String16.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "aidl/UnsupportedService.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/Process.h"

namespace bench {

namespace {

std::atomic<uint64_t> gWarnings{0};

class EngineService : public com::tivora::displayengine::UnsupportedService {
public:
    void configure(const EngineConfig& config) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mConfig = {1,
                   512,
                   512,
                   1280,
                   720,
                   30,
                   config.monitorMaxFps,
                   config.monitorTolerance,
                   config.monitorRestore,
                   config.abortMs,
                   config.overloadMs,
                   config.overloadCount,
                   config.overloadPeriodMs};
    }

    Status getSupported(int32_t /*feature*/, int32_t* result) override {
        *result = 1;
        return Status::ok();
    }
    Status getEffectExByData(int32_t /*feature*/, const Bundle& /*data*/,
                             std::vector<int32_t>* status, int32_t* result) override {
        const std::lock_guard<std::mutex> lock(mMutex);
        *status = mConfig;
        *result = 0;
        return Status::ok();
    }
    Status registerCallbackEx(const Callback& /*callback*/, const Bundle& /*data*/,
                              bool* result) override {
        *result = true;
        return Status::ok();
    }
    Status unregisterCallbackEx(const Bundle& /*data*/) override { return Status::ok(); }

private:
    std::mutex mMutex;
    std::vector<int32_t> mConfig;  // guarded by mMutex
};

// Never destroyed: engines withdraw their registration while the process exits.
EngineService& service() {
    static const android::sp<EngineService>& theService =
        *new android::sp<EngineService>(new EngineService);
    return *theService;
}

void countWarning(const __android_log_message* message) {
    if (message->priority >= ANDROID_LOG_WARN) {
        gWarnings.fetch_add(1, std::memory_order_relaxed);
    }
}

}  // namespace

void setUpService() {
    useRuntimeDirectory();
    __android_log_set_logger(&countWarning);
    g_delogdEnable = g_delogiEnable = g_delogvEnable = false;
    configure({});
    require(android::defaultServiceManager()->addService(android::String16("DisplayEngineService"),
                                                         &service()) == android::OK,
            "registering the measurement's own service");
}

void configure(const EngineConfig& config) {
    service().configure(config);
}

std::unique_ptr<AisrEngine> startEngine(const EngineConfig& config) {
    configure(config);
    auto engine = std::make_unique<AisrEngine>();
    require(engine->initialize(), "initialising the engine");
    engine->onAppStart();
    require(engine->isReady(), "starting the engine's worker");
    return engine;
}

uint64_t warnings() {
    return gWarnings.load(std::memory_order_relaxed);
}

Aisr::BufferInfo frame(uint64_t id) {
    static char planes[2];
    return {id, &planes[0], &planes[1], 1280, 720, 1280, 0};
}

}  // namespace bench
