// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

#include "aidl/IDisplayEngineCallback.h"

namespace com {
namespace tivora {
namespace displayengine {

/** The service's side of IDisplayEngineCallback: each operation is one oneway transaction. */
class DE_EXPORT BpDisplayEngineCallback : public android::BpInterface<IDisplayEngineCallback> {
public:
    /** Calls through `remote`, which it holds. asInterface() makes them. */
    explicit BpDisplayEngineCallback(const android::sp<android::IBinder>& remote);
    ~BpDisplayEngineCallback() override;

    android::binder::Status onEvent(int32_t event, int32_t value) override;
    android::binder::Status onEventWithData(int32_t event,
                                            const android::os::PersistableBundle& data) override;
};

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
