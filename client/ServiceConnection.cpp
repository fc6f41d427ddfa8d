// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N DEM"

#include "client/ServiceConnection.h"

#include <binder/IServiceManager.h>
#include <binder/PersistableBundle.h>
#include <binder/Status.h>
#include <utils/String16.h>

#include "aidl/CallStatus.h"
#include "common/Log.h"
#include "common/NoThrow.h"

using android::defaultServiceManager;
using android::IBinder;
using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using com::tivora::displayengine::callStatus;
using com::tivora::displayengine::IDisplayEngineService;

namespace {

constexpr const char* kServiceName = "DisplayEngineService";
constexpr int32_t kFailure = -22;

}  // namespace

sp<IDisplayEngineService> getDisplayEngineService() {
    const auto binder = noThrow(
        sp<IBinder>(), [] { return defaultServiceManager()->getService(String16(kServiceName)); });
    if (binder == nullptr) {
        DE_LOGE("binder is nullptr!");
        return nullptr;
    }
    return IDisplayEngineService::asInterface(binder);
}

sp<IDisplayEngineService> checkDisplayEngineService() {
    const auto binder = noThrow(sp<IBinder>(), [] {
        return defaultServiceManager()->checkService(String16(kServiceName));
    });
    if (binder == nullptr) {
        DE_LOGE("binder is nullptr!");
        return nullptr;
    }
    return IDisplayEngineService::asInterface(binder);
}

int32_t setCwbForceEnable(int32_t enable) {
    const sp<IDisplayEngineService> service = getDisplayEngineService();
    if (service == nullptr) {
        DE_LOGE("Failed to get displayengineserver binder!");
        return kFailure;
    }
    DE_LOGI("input enable is %d", enable);
    if (enable != 0 && enable != 1) {
        DE_LOGE("input enable should be 1 or 0, but the real input value is %d", enable);
        return kFailure;
    }
    const Status status = callStatus([&] {
        PersistableBundle data;
        data.putInt(String16("forceEnable"), enable);
        int32_t result = 0;  // The service's own answer does not count.
        return service->setData(IDisplayEngineService::DE_DATA_TYPE_CWB_FORCE_ENABLE, data,
                                &result);
    });
    if (!status.isOk()) {
        DE_LOGE("Failed to setData(DE_DATA_TYPE_CWB_FORCE_ENABLE, %d)!", enable);
        return kFailure;
    }
    return 0;
}
