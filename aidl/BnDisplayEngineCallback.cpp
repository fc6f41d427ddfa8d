// SPDX-License-Identifier: Apache-2.0
#include "aidl/BnDisplayEngineCallback.h"

#include <binder/Stability.h>

#include "aidl/StubCall.h"
#include "aidl/TransactionCodes.h"

namespace com {
namespace tivora {
namespace displayengine {

using android::OK;
using android::Parcel;
using android::status_t;
using android::os::PersistableBundle;
using stub::arguments;
using stub::readRequest;

// Named apart: the stub has inherited members of the same names.
namespace serve {
namespace {

// The sender is not waiting: what the operations return is dropped and nothing is written.

status_t onEvent(BnDisplayEngineCallback& callback, const Parcel& data) {
    int32_t event = 0;
    int32_t value = 0;
    const status_t status = readRequest(callback, data, arguments(&event, &value));
    if (status == OK) {
        static_cast<void>(callback.onEvent(event, value));
    }
    return status;
}

status_t onEventWithData(BnDisplayEngineCallback& callback, const Parcel& data) {
    int32_t event = 0;
    PersistableBundle bundle;
    const status_t status = readRequest(callback, data, arguments(&event, &bundle));
    if (status == OK) {
        static_cast<void>(callback.onEventWithData(event, bundle));
    }
    return status;
}

}  // namespace
}  // namespace serve

BnDisplayEngineCallback::BnDisplayEngineCallback() {
    android::internal::Stability::markCompilationUnit(this);
}

BnDisplayEngineCallback::~BnDisplayEngineCallback() = default;

status_t BnDisplayEngineCallback::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                             uint32_t flags) {
    const auto dispatch = [&]() -> status_t {
        switch (static_cast<CallbackCode>(code)) {
            case CallbackCode::ON_EVENT:
                return serve::onEvent(*this, data);
            case CallbackCode::ON_EVENT_WITH_DATA:
                return serve::onEventWithData(*this, data);
        }
        return BBinder::onTransact(code, data, reply, flags);
    };
    return stub::reportNull(noThrow(status_t{android::NO_MEMORY}, dispatch), reply);
}

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
