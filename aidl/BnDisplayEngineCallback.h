// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>
#include <binder/Parcel.h>

#include "aidl/IDisplayEngineCallback.h"

namespace com {
namespace tivora {
namespace displayengine {

/**
 * Base of the object that a client registers with the service. It turns each incoming event into a
 * call of the operation, on a binder thread of the client process. The Status that an operation
 * returns goes nowhere.
 */
class DE_EXPORT BnDisplayEngineCallback : public android::BnInterface<IDisplayEngineCallback> {
public:
    BnDisplayEngineCallback();
    ~BnDisplayEngineCallback() override;

    /**
     * Runs one incoming transaction; a code that is not of this interface goes to BBinder. Called
     * by the platform.
     */
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;
};

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
