// SPDX-License-Identifier: Apache-2.0
#include "aidl/IDisplayEngineCallback.h"

#include "aidl/BpDisplayEngineCallback.h"
#include "aidl/InterfaceStatics.h"

namespace com {
namespace tivora {
namespace displayengine {

using android::IBinder;
using android::sp;
using android::String16;

namespace {

constexpr char kDescriptor[] = "com.tivora.displayengine.IDisplayEngineCallback";

// The descriptor for proxies and stubs. Unlike the interface's own it is never destroyed: calls and
// events may come while the process exits.
const String16& kLastingDescriptor = *new String16(kDescriptor);

}  // namespace

const String16 IDisplayEngineCallback::descriptor(kDescriptor);
std::unique_ptr<IDisplayEngineCallback> IDisplayEngineCallback::default_impl;

IDisplayEngineCallback::IDisplayEngineCallback() = default;

IDisplayEngineCallback::~IDisplayEngineCallback() = default;

const String16& IDisplayEngineCallback::getInterfaceDescriptor() const {
    return kLastingDescriptor;
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

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
