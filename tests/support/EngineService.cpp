#include "support/EngineService.h"

#include <binder/IServiceManager.h>
#include <binder/PersistableBundle.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

using android::sp;
using android::String16;
using android::String8;
using android::binder::Status;

namespace {

std::string text(const EngineService::Bundle& data) {
    String16 key;
    data.getString(String16("Key"), &key);
    std::string result = std::string(" Key=") + String8(key).string();
    for (const char* name : {"Feature", "Type"}) {
        int32_t value = 0;
        if (data.getInt(String16(name), &value)) {
            result += std::string(" ") + name + "=" + std::to_string(value);
        }
    }
    return result;
}

}  // namespace

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
    supportStatus = configStatus = registerStatus = dataStatus = Status::ok();
    registerResult = true;
    whenAsked = nullptr;
    whenRegistered = nullptr;
    const std::lock_guard<std::mutex> lock(mMutex);
    mCalls.clear();
    mCallback = nullptr;
}

void EngineService::record(const std::string& call) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mCalls.push_back(call);
}

size_t EngineService::count(const std::string& operation) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return static_cast<size_t>(
        std::count_if(mCalls.begin(), mCalls.end(), [&operation](const std::string& call) {
            return call.substr(0, call.find(' ')) == operation;
        }));
}

std::vector<std::string> EngineService::takeCalls() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mCalls, {});
}

EngineService::Callback EngineService::callback() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mCallback;
}

Status EngineService::getSupported(int32_t feature, int32_t* result) {
    record("getSupported " + std::to_string(feature));
    if (whenAsked) {
        whenAsked();
    }
    *result = support;
    return supportStatus;
}

Status EngineService::setData(int32_t type, const Bundle& data, int32_t* result) {
    int32_t value = -1;
    data.getInt(String16("forceEnable"), &value);
    record("setData " + std::to_string(type) + " forceEnable=" + std::to_string(value));
    *result = -1;  // Nobody looks at it.
    return dataStatus;
}

Status EngineService::getEffectExByData(int32_t feature, const Bundle& data,
                                        std::vector<int32_t>* status, int32_t* result) {
    record("getEffectExByData " + std::to_string(feature) + text(data) +
           " size=" + std::to_string(status->size()));
    *status = config;
    *result = -1;  // Nobody looks at it.
    return configStatus;
}

Status EngineService::registerCallbackEx(const Callback& callback, const Bundle& data,
                                         bool* result) {
    record("registerCallbackEx" + text(data));
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

Status EngineService::unregisterCallbackEx(const Bundle& data) {
    record("unregisterCallbackEx" + text(data));
    return Status::ok();
}
