// SPDX-License-Identifier: Apache-2.0
#include "aidl/BnDisplayEngineService.h"

#include <binder/Stability.h>

#include "aidl/StubCall.h"
#include "aidl/TransactionCodes.h"

namespace com {
namespace tivora {
namespace displayengine {

using android::Parcel;
using android::sp;
using android::status_t;
using android::os::PersistableBundle;
using stub::answer;
using stub::arguments;
using stub::results;

// Named apart: the stub has inherited members of the same names.
namespace serve {
namespace {

status_t getSupported(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    int32_t feature = 0;
    int32_t result = 0;
    return answer(service, data, reply, arguments(&feature), results(result),
                  [&] { return service.getSupported(feature, &result); });
}

status_t setScene(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    int32_t scene = 0;
    int32_t value = 0;
    int32_t result = 0;
    return answer(service, data, reply, arguments(&scene, &value), results(result),
                  [&] { return service.setScene(scene, value, &result); });
}

status_t setData(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    int32_t type = 0;
    PersistableBundle bundle;
    int32_t result = 0;
    return answer(service, data, reply, arguments(&type, &bundle), results(result),
                  [&] { return service.setData(type, bundle, &result); });
}

status_t getEffectEx(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    int32_t feature = 0;
    int32_t type = 0;
    std::vector<int32_t> status;
    int32_t length = 0;
    int32_t result = 0;
    return answer(service, data, reply, arguments(&feature, &type, &status, &length),
                  results(result, status),
                  [&] { return service.getEffectEx(feature, type, &status, length, &result); });
}

status_t getEffect(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    int32_t feature = 0;
    int32_t type = 0;
    std::vector<uint8_t> buffer;
    int32_t length = 0;
    int32_t result = 0;
    return answer(service, data, reply, arguments(&feature, &type, &buffer, &length),
                  results(result, buffer),
                  [&] { return service.getEffect(feature, type, &buffer, length, &result); });
}

status_t getEffectExByData(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    int32_t feature = 0;
    PersistableBundle bundle;
    std::vector<int32_t> status;
    int32_t result = 0;
    return answer(service, data, reply, arguments(&feature, &bundle, &status),
                  results(result, status),
                  [&] { return service.getEffectExByData(feature, bundle, &status, &result); });
}

status_t setEffect(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    int32_t feature = 0;
    int32_t type = 0;
    PersistableBundle bundle;
    int32_t result = 0;
    return answer(service, data, reply, arguments(&feature, &type, &bundle), results(result),
                  [&] { return service.setEffect(feature, type, bundle, &result); });
}

status_t registerCallback(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    sp<IDisplayEngineCallback> callback;
    return answer(service, data, reply, arguments(&callback), results(),
                  [&] { return service.registerCallback(callback); });
}

status_t registerCallbackEx(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    sp<IDisplayEngineCallback> callback;
    PersistableBundle bundle;
    bool accepted = false;
    return answer(service, data, reply, arguments(&callback, &bundle), results(accepted),
                  [&] { return service.registerCallbackEx(callback, bundle, &accepted); });
}

status_t unregisterCallback(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    sp<IDisplayEngineCallback> callback;
    return answer(service, data, reply, arguments(&callback), results(),
                  [&] { return service.unregisterCallback(callback); });
}

status_t unregisterCallbackEx(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    PersistableBundle bundle;
    return answer(service, data, reply, arguments(&bundle), results(),
                  [&] { return service.unregisterCallbackEx(bundle); });
}

status_t processGraphicBuffer(BnDisplayEngineService& service, const Parcel& data, Parcel* reply) {
    int32_t feature = 0;
    int32_t type = 0;
    DeGraphicBuffer input;
    DeGraphicBuffer output;
    int32_t result = 0;
    return answer(service, data, reply, arguments(&feature, &type, &input, &output),
                  results(result, input, output), [&] {
                      return service.processGraphicBuffer(feature, type, &input, &output, &result);
                  });
}

}  // namespace
}  // namespace serve

BnDisplayEngineService::BnDisplayEngineService() {
    android::internal::Stability::markCompilationUnit(this);
}

BnDisplayEngineService::~BnDisplayEngineService() = default;

status_t BnDisplayEngineService::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                            uint32_t flags) {
    const auto dispatch = [&]() -> status_t {
        switch (static_cast<ServiceCode>(code)) {
            case ServiceCode::GET_SUPPORTED:
                return serve::getSupported(*this, data, reply);
            case ServiceCode::SET_SCENE:
                return serve::setScene(*this, data, reply);
            case ServiceCode::SET_DATA:
                return serve::setData(*this, data, reply);
            case ServiceCode::GET_EFFECT_EX:
                return serve::getEffectEx(*this, data, reply);
            case ServiceCode::GET_EFFECT:
                return serve::getEffect(*this, data, reply);
            case ServiceCode::GET_EFFECT_EX_BY_DATA:
                return serve::getEffectExByData(*this, data, reply);
            case ServiceCode::SET_EFFECT:
                return serve::setEffect(*this, data, reply);
            case ServiceCode::REGISTER_CALLBACK:
                return serve::registerCallback(*this, data, reply);
            case ServiceCode::REGISTER_CALLBACK_EX:
                return serve::registerCallbackEx(*this, data, reply);
            case ServiceCode::UNREGISTER_CALLBACK:
                return serve::unregisterCallback(*this, data, reply);
            case ServiceCode::UNREGISTER_CALLBACK_EX:
                return serve::unregisterCallbackEx(*this, data, reply);
            case ServiceCode::PROCESS_GRAPHIC_BUFFER:
                return serve::processGraphicBuffer(*this, data, reply);
        }
        return BBinder::onTransact(code, data, reply, flags);
    };
    return stub::reportNull(noThrow(status_t{android::NO_MEMORY}, dispatch), reply);
}

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
