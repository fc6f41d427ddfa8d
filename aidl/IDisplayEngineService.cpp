// SPDX-License-Identifier: Apache-2.0
#include "aidl/IDisplayEngineService.h"

#include "aidl/BpDisplayEngineService.h"
#include "aidl/InterfaceStatics.h"

namespace com {
namespace tivora {
namespace displayengine {

using android::IBinder;
using android::sp;
using android::String16;

namespace {

constexpr char kDescriptor[] = "com.tivora.displayengine.IDisplayEngineService";

// The descriptor for proxies and stubs. Unlike the interface's own it is never destroyed: calls and
// events may come while the process exits.
const String16& kLastingDescriptor = *new String16(kDescriptor);

}  // namespace

const String16 IDisplayEngineService::descriptor(kDescriptor);
std::unique_ptr<IDisplayEngineService> IDisplayEngineService::default_impl;

IDisplayEngineService::IDisplayEngineService() = default;

IDisplayEngineService::~IDisplayEngineService() = default;

const String16& IDisplayEngineService::getInterfaceDescriptor() const {
    return kLastingDescriptor;
}

sp<IDisplayEngineService> IDisplayEngineService::asInterface(const sp<IBinder>& binder) {
    return statics::asInterface<IDisplayEngineService, BpDisplayEngineService>(binder);
}

bool IDisplayEngineService::setDefaultImpl(std::unique_ptr<IDisplayEngineService> impl) {
    return statics::replaceDefault(default_impl, std::move(impl));
}

const std::unique_ptr<IDisplayEngineService>& IDisplayEngineService::getDefaultImpl() {
    return default_impl;
}

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
