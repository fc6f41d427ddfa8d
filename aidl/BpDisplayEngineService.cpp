// SPDX-License-Identifier: Apache-2.0
#include "aidl/BpDisplayEngineService.h"

#include "aidl/ProxyCall.h"
#include "aidl/TransactionCodes.h"

namespace com {
namespace tivora {
namespace displayengine {

using android::IBinder;
using android::sp;
using android::binder::Status;
using android::os::PersistableBundle;
using proxy::call;
using proxy::request;
using proxy::results;

BpDisplayEngineService::BpDisplayEngineService(const sp<IBinder>& remote)
    : BpInterface<IDisplayEngineService>(remote) {}

BpDisplayEngineService::~BpDisplayEngineService() = default;

Status BpDisplayEngineService::getSupported(int32_t feature, int32_t* result) {
    return call<IDisplayEngineService>(
        *this, ServiceCode::GET_SUPPORTED, request(feature), results(result),
        [&](IDisplayEngineService& fallback) { return fallback.getSupported(feature, result); });
}

Status BpDisplayEngineService::setScene(int32_t scene, int32_t value, int32_t* result) {
    return call<IDisplayEngineService>(
        *this, ServiceCode::SET_SCENE, request(scene, value), results(result),
        [&](IDisplayEngineService& fallback) { return fallback.setScene(scene, value, result); });
}

Status BpDisplayEngineService::setData(int32_t type, const PersistableBundle& data,
                                       int32_t* result) {
    return call<IDisplayEngineService>(
        *this, ServiceCode::SET_DATA, request(type, data), results(result),
        [&](IDisplayEngineService& fallback) { return fallback.setData(type, data, result); });
}

Status BpDisplayEngineService::getEffectEx(int32_t feature, int32_t type,
                                           std::vector<int32_t>* status, int32_t length,
                                           int32_t* result) {
    return call<IDisplayEngineService>(
        *this, ServiceCode::GET_EFFECT_EX, request(feature, type, *status, length),
        results(result, status), [&](IDisplayEngineService& fallback) {
            return fallback.getEffectEx(feature, type, status, length, result);
        });
}

Status BpDisplayEngineService::getEffect(int32_t feature, int32_t type,
                                         std::vector<uint8_t>* buffer, int32_t length,
                                         int32_t* result) {
    return call<IDisplayEngineService>(
        *this, ServiceCode::GET_EFFECT, request(feature, type, *buffer, length),
        results(result, buffer), [&](IDisplayEngineService& fallback) {
            return fallback.getEffect(feature, type, buffer, length, result);
        });
}

Status BpDisplayEngineService::getEffectExByData(int32_t feature, const PersistableBundle& data,
                                                 std::vector<int32_t>* status, int32_t* result) {
    return call<IDisplayEngineService>(
        *this, ServiceCode::GET_EFFECT_EX_BY_DATA, request(feature, data, *status),
        results(result, status), [&](IDisplayEngineService& fallback) {
            return fallback.getEffectExByData(feature, data, status, result);
        });
}

Status BpDisplayEngineService::setEffect(int32_t feature, int32_t type,
                                         const PersistableBundle& data, int32_t* result) {
    return call<IDisplayEngineService>(*this, ServiceCode::SET_EFFECT, request(feature, type, data),
                                       results(result), [&](IDisplayEngineService& fallback) {
                                           return fallback.setEffect(feature, type, data, result);
                                       });
}

Status BpDisplayEngineService::registerCallback(const sp<IDisplayEngineCallback>& callback) {
    return call<IDisplayEngineService>(
        *this, ServiceCode::REGISTER_CALLBACK, request(callback), results(),
        [&](IDisplayEngineService& fallback) { return fallback.registerCallback(callback); });
}

Status BpDisplayEngineService::registerCallbackEx(const sp<IDisplayEngineCallback>& callback,
                                                  const PersistableBundle& data, bool* result) {
    return call<IDisplayEngineService>(
        *this, ServiceCode::REGISTER_CALLBACK_EX, request(callback, data), results(result),
        [&](IDisplayEngineService& fallback) {
            return fallback.registerCallbackEx(callback, data, result);
        });
}

Status BpDisplayEngineService::unregisterCallback(const sp<IDisplayEngineCallback>& callback) {
    return call<IDisplayEngineService>(
        *this, ServiceCode::UNREGISTER_CALLBACK, request(callback), results(),
        [&](IDisplayEngineService& fallback) { return fallback.unregisterCallback(callback); });
}

Status BpDisplayEngineService::unregisterCallbackEx(const PersistableBundle& data) {
    return call<IDisplayEngineService>(
        *this, ServiceCode::UNREGISTER_CALLBACK_EX, request(data), results(),
        [&](IDisplayEngineService& fallback) { return fallback.unregisterCallbackEx(data); });
}

Status BpDisplayEngineService::processGraphicBuffer(int32_t feature, int32_t type,
                                                    DeGraphicBuffer* input, DeGraphicBuffer* output,
                                                    int32_t* result) {
    return call<IDisplayEngineService>(
        *this, ServiceCode::PROCESS_GRAPHIC_BUFFER, request(feature, type, *input, *output),
        results(result, input, output), [&](IDisplayEngineService& fallback) {
            return fallback.processGraphicBuffer(feature, type, input, output, result);
        });
}

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
