// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "aidl/IDisplayEngineService.h"

namespace com {
namespace tivora {
namespace displayengine {

/** The client's side of IDisplayEngineService: each operation is one two-way transaction. */
class DE_EXPORT BpDisplayEngineService : public android::BpInterface<IDisplayEngineService> {
public:
    /** Calls through `remote`, which it holds. asInterface() makes them. */
    explicit BpDisplayEngineService(const android::sp<android::IBinder>& remote);
    ~BpDisplayEngineService() override;

    android::binder::Status getSupported(int32_t feature, int32_t* result) override;
    android::binder::Status setScene(int32_t scene, int32_t value, int32_t* result) override;
    android::binder::Status setData(int32_t type, const android::os::PersistableBundle& data,
                                    int32_t* result) override;
    android::binder::Status getEffectEx(int32_t feature, int32_t type, std::vector<int32_t>* status,
                                        int32_t length, int32_t* result) override;
    android::binder::Status getEffect(int32_t feature, int32_t type, std::vector<uint8_t>* buffer,
                                      int32_t length, int32_t* result) override;
    android::binder::Status getEffectExByData(int32_t feature,
                                              const android::os::PersistableBundle& data,
                                              std::vector<int32_t>* status,
                                              int32_t* result) override;
    android::binder::Status setEffect(int32_t feature, int32_t type,
                                      const android::os::PersistableBundle& data,
                                      int32_t* result) override;
    android::binder::Status registerCallback(
        const android::sp<IDisplayEngineCallback>& callback) override;
    android::binder::Status registerCallbackEx(const android::sp<IDisplayEngineCallback>& callback,
                                               const android::os::PersistableBundle& data,
                                               bool* result) override;
    android::binder::Status unregisterCallback(
        const android::sp<IDisplayEngineCallback>& callback) override;
    android::binder::Status unregisterCallbackEx(
        const android::os::PersistableBundle& data) override;
    android::binder::Status processGraphicBuffer(int32_t feature, int32_t type,
                                                 DeGraphicBuffer* input, DeGraphicBuffer* output,
                                                 int32_t* result) override;
};

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
