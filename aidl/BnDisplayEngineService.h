// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>
#include <binder/Parcel.h>

#include "aidl/IDisplayEngineService.h"

namespace com {
namespace tivora {
namespace displayengine {

/**
 * Base of the object that a service process registers. It turns each incoming transaction into a
 * call of the operation, on a binder thread of that process, and the results into the reply. A
 * malformed request is answered with its error and reaches no operation; a null callback with an
 * EX_NULL_POINTER status.
 */
class DE_EXPORT BnDisplayEngineService : public android::BnInterface<IDisplayEngineService> {
public:
    BnDisplayEngineService();
    ~BnDisplayEngineService() override;

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
