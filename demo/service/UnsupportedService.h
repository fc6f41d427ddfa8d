// SPDX-License-Identifier: Apache-2.0
// A service to begin with: it knows no operation yet.
#pragma once

#include <vector>

#include "aidl/BnDisplayEngineService.h"

namespace sample {

/**
 * Answers every operation with EX_UNSUPPORTED_OPERATION, which a client takes for a failed call.
 * Derive from it and override what the service offers.
 */
class UnsupportedService : public com::tivora::displayengine::BnDisplayEngineService {
public:
    using Status = android::binder::Status;
    using Bundle = android::os::PersistableBundle;
    using Callback = android::sp<com::tivora::displayengine::IDisplayEngineCallback>;
    using GraphicBuffer = com::tivora::displayengine::DeGraphicBuffer;

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
    Status registerCallback(const Callback&) override { return refuse(); }
    Status registerCallbackEx(const Callback&, const Bundle&, bool*) override { return refuse(); }
    Status unregisterCallback(const Callback&) override { return refuse(); }
    Status unregisterCallbackEx(const Bundle&) override { return refuse(); }
    Status processGraphicBuffer(int32_t, int32_t, GraphicBuffer*, GraphicBuffer*,
                                int32_t*) override {
        return refuse();
    }

private:
    static Status refuse() { return Status::fromExceptionCode(Status::EX_UNSUPPORTED_OPERATION); }
};

}  // namespace sample
