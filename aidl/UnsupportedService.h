// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "aidl/BnDisplayEngineService.h"

namespace com {
namespace tivora {
namespace displayengine {

/**
 * The starting point of a service: it answers every operation with EX_UNSUPPORTED_OPERATION, which
 * a client takes for a failed call. Derive from it and override what the service offers. The
 * operations are called on binder threads, several at a time.
 *
 * It has no part in the library: everything is in this header.
 */
class UnsupportedService : public BnDisplayEngineService {
public:
    using Status = android::binder::Status;               /**< Short for the platform's. */
    using Bundle = android::os::PersistableBundle;        /**< Likewise. */
    using Callback = android::sp<IDisplayEngineCallback>; /**< A client's callback. */
    using GraphicBuffer = DeGraphicBuffer;                /**< An image of a transaction. */

    Status getSupported(int32_t, int32_t*) override { return refuse(); }
    Status setScene(int32_t, int32_t, int32_t*) override { return refuse(); }
    Status setData(int32_t, const Bundle&, int32_t*) override { return refuse(); }
    Status getEffectEx(int32_t, int32_t, std::vector<int32_t>*, int32_t, int32_t*) override {
        return refuse();
    }
    Status getEffect(int32_t, int32_t, std::vector<uint8_t>*, int32_t, int32_t*) override {
        return refuse();
    }
    Status getEffectExByData(int32_t, const Bundle&, std::vector<int32_t>*, int32_t*) override {
        return refuse();
    }
    Status setEffect(int32_t, int32_t, const Bundle&, int32_t*) override { return refuse(); }
    Status registerCallback(const android::sp<IDisplayEngineCallback>&) override {
        return refuse();
    }
    Status registerCallbackEx(const android::sp<IDisplayEngineCallback>&,
                              const android::os::PersistableBundle&, bool*) override {
        return refuse();
    }
    Status unregisterCallback(const android::sp<IDisplayEngineCallback>&) override {
        return refuse();
    }
    Status unregisterCallbackEx(const Bundle&) override { return refuse(); }
    Status processGraphicBuffer(int32_t, int32_t, GraphicBuffer*, GraphicBuffer*,
                                int32_t*) override {
        return refuse();
    }

private:
    static Status refuse() { return Status::fromExceptionCode(Status::EX_UNSUPPORTED_OPERATION); }
};

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
