// SPDX-License-Identifier: Apache-2.0
#include "aidl/IDisplayEngineService.h"

#include "aidl/BpDisplayEngineService.h"
#include "aidl/InterfaceStatics.h"
#include "aidl/ProxyCall.h"

namespace com {
namespace tivora {
namespace displayengine {

using android::IBinder;
using android::sp;
using android::String16;

namespace {

constexpr char kDescriptor[] = "com.tivora.displayengine.IDisplayEngineService";

}  // namespace

const String16 IDisplayEngineService::descriptor(kDescriptor);
std::unique_ptr<IDisplayEngineService> IDisplayEngineService::default_impl;

IDisplayEngineService::IDisplayEngineService() = default;

IDisplayEngineService::~IDisplayEngineService() = default;

const String16& IDisplayEngineService::getInterfaceDescriptor() const {
    return descriptor;
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

const String16& proxy::token(const IDisplayEngineService& /*proxy*/) {
    static const String16& lasting = *new String16(kDescriptor);
    return lasting;
}

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
