// SPDX-License-Identifier: Apache-2.0
#include "support/EngineService.h"

#include <binder/IServiceManager.h>
#include <utils/String16.h>

#include <stdexcept>

using android::sp;
using android::String16;
using android::binder::Status;
using protocol::call;

EngineService::Config EngineService::defaultConfig() {
    return {1, 512, 512, 720, 1280, 30, 38, 2, 3, 40, 33, 5, 10000};
}

sp<EngineService> EngineService::install() {
    static sp<EngineService>& service = *new sp<EngineService>;
    if (service == nullptr) {
        service = new EngineService;
        if (android::defaultServiceManager()->addService(String16("DisplayEngineService"),
                                                         service) != android::OK) {
            throw std::runtime_error("the test's service could not be registered");
        }
    }
    service->reset();
    return service;
}

void EngineService::reset() {
    support = 1;
    config = defaultConfig();
    supportStatus = configStatus = registerStatus = Status::ok();
    registerResult = true;
    whenAsked = nullptr;
    whenRegistered = nullptr;
    journal.take();
    const std::lock_guard<std::mutex> lock(mMutex);
    mCallback = nullptr;
}

Status EngineService::getSupported(int32_t feature, int32_t* result) {
    journal.add(call("getSupported", feature));
    if (whenAsked) {
        whenAsked();
    }
    *result = support;
    return supportStatus;
}

Status EngineService::getEffectExByData(int32_t feature, const Bundle& data,
                                        std::vector<int32_t>* status, int32_t* result) {
    journal.add(call("getEffectExByData", feature, data) +
                " size=" + std::to_string(status->size()));
    *status = config;
    *result = -1;  // Nobody looks at it.
    return configStatus;
}

Status EngineService::registerCallbackEx(const Callback& callback, const Bundle& data,
                                         bool* result) {
    journal.add(call("registerCallbackEx", data));
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mCallback = callback;
    }
    if (whenRegistered) {
        whenRegistered(callback);
    }
    *result = registerResult;
    return registerStatus;
}
