// SPDX-License-Identifier: Apache-2.0
#include "aidl/IDisplayEngineCallback.h"

#include "aidl/BpDisplayEngineCallback.h"
#include "aidl/InterfaceStatics.h"
#include "aidl/ProxyCall.h"

namespace com {
namespace tivora {
namespace displayengine {

using android::IBinder;
using android::sp;
using android::String16;

namespace {

constexpr char kDescriptor[] = "com.tivora.displayengine.IDisplayEngineCallback";

}  // namespace

const String16 IDisplayEngineCallback::descriptor(kDescriptor);
std::unique_ptr<IDisplayEngineCallback> IDisplayEngineCallback::default_impl;

IDisplayEngineCallback::IDisplayEngineCallback() = default;

IDisplayEngineCallback::~IDisplayEngineCallback() = default;

const String16& IDisplayEngineCallback::getInterfaceDescriptor() const {
    return descriptor;
}

sp<IDisplayEngineCallback> IDisplayEngineCallback::asInterface(const sp<IBinder>& binder) {
    return statics::asInterface<IDisplayEngineCallback, BpDisplayEngineCallback>(binder);
}

bool IDisplayEngineCallback::setDefaultImpl(std::unique_ptr<IDisplayEngineCallback> impl) {
    return statics::replaceDefault(default_impl, std::move(impl));
}

const std::unique_ptr<IDisplayEngineCallback>& IDisplayEngineCallback::getDefaultImpl() {
    return default_impl;
}

const String16& proxy::token(const IDisplayEngineCallback& /*proxy*/) {
    static const String16& lasting = *new String16(kDescriptor);
    return lasting;
}

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
