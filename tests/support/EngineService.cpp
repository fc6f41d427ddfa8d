// SPDX-License-Identifier: Apache-2.0
#include "support/EngineService.h"

#include <binder/IServiceManager.h>
#include <utils/String16.h>

#include <stdexcept>

using android::sp;
using android::binder::Status;

sp<EngineService> EngineService::install() {
    const sp<EngineService> service = new EngineService;
    if (android::defaultServiceManager()->addService(android::String16("DisplayEngineService"),
                                                     service) != android::OK) {
        throw std::runtime_error("the test's service could not be registered");
    }
    return service;
}

Status EngineService::respond(const std::string& call, const protocol::Answer& to) {
    const Status outcome = RecordingService::respond(call, to);
    if (call.rfind("getSupported ", 0) == 0) {
        if (whenAsked) {
            whenAsked();
        }
        *to.result = support;
    } else if (call.rfind("getEffectExByData ", 0) == 0) {
        *to.values = {config.enable,        config.minWidth,         config.minHeight,
                      config.maxWidth,      config.maxHeight,        config.maxFps,
                      config.monitorMaxFps, config.monitorTolerance, config.monitorRestore,
                      config.abortMs,       config.overloadMs,       config.toleranceCount,
                      config.toleranceMs};
    }
    return outcome;
}

Status EngineService::registerCallbackEx(const Callback& callback, const Bundle& data,
                                         bool* result) {
    mCallback = callback;
    if (whenRegistered) {
        whenRegistered(callback);
    }
    const Status status = RecordingService::registerCallbackEx(callback, data, result);
    *result = registerResult;
    return status;
}
