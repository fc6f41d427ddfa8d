// SPDX-License-Identifier: Apache-2.0
#include "aidl/BpDisplayEngineCallback.h"

#include "aidl/ProxyCall.h"
#include "aidl/TransactionCodes.h"

namespace com {
namespace tivora {
namespace displayengine {

using android::IBinder;
using android::sp;
using android::binder::Status;
using android::os::PersistableBundle;
using proxy::request;
using proxy::send;

BpDisplayEngineCallback::BpDisplayEngineCallback(const sp<IBinder>& remote)
    : BpInterface<IDisplayEngineCallback>(remote) {}

BpDisplayEngineCallback::~BpDisplayEngineCallback() = default;

Status BpDisplayEngineCallback::onEvent(int32_t event, int32_t value) {
    return send<IDisplayEngineCallback>(
        *this, CallbackCode::ON_EVENT, request(event, value),
        [&](IDisplayEngineCallback& fallback) { return fallback.onEvent(event, value); });
}

Status BpDisplayEngineCallback::onEventWithData(int32_t event, const PersistableBundle& data) {
    return send<IDisplayEngineCallback>(
        *this, CallbackCode::ON_EVENT_WITH_DATA, request(event, data),
        [&](IDisplayEngineCallback& fallback) { return fallback.onEventWithData(event, data); });
}

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
