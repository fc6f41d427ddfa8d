// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N DEM"

#include <binder/PersistableBundle.h>
#include <binder/Status.h>
#include <utils/String16.h>

#include <utility>
#include <vector>

#include "aidl/CallStatus.h"
#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/DisplayEngineCleanCommon.h"
#include "common/Log.h"
#include "common/NoThrow.h"

// A failed call leaves its result variable alone, so each is preset to what a failure answers. Some
// methods look at the status as well; the others rely on the preset alone.

using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using com::tivora::displayengine::callStatus;
using com::tivora::displayengine::IDisplayEngineCallback;
using com::tivora::displayengine::IDisplayEngineService;

namespace {

constexpr int kSetterFailure = -22;
constexpr int kAlphaFailure = 1023;
constexpr int32_t kPanelNameSize = 255;
constexpr int32_t kAlphaSize = 4;
constexpr int32_t kLocalHbmSize = 1;

/** The first four bytes as an int32, least significant first. REQUIRES: that many. */
int32_t toInt32(const std::vector<uint8_t>& bytes) {
    uint32_t value = 0;
    for (size_t i = 0; i < sizeof(value); ++i) {
        value |= uint32_t{bytes[i]} << (8 * i);
    }
    return static_cast<int32_t>(value);
}

}  // namespace

int DisplayEngineManager::displayengineSetBrightness(int level) {
    if (level < 0) {
        DE_LOGE("INVALID BrightnessLevel=%d.", level);
        return -1;
    }
    const sp<IDisplayEngineService> service = getService();
    if (service == nullptr) {
        DE_LOGE("service is nullptr!");
        return -1;
    }
    if (!mSupportRgLedQueried) {
        mSupportRgLedQueried = true;
        static_cast<void>(
            service->getSupported(IDisplayEngineService::DE_FEATURE_RGLED, &mSupportRgLed));
        DE_LOGI("mSupportRgLed=%d", mSupportRgLed);
    }
    if (mSupportRgLed >= 1) {
        if (level != mLastBrightnessLevel) {
            int32_t result = -1;
            static_cast<void>(
                service->setScene(IDisplayEngineService::DE_SCENE_BRIGHTNESS, level, &result));
            mLastBrightnessLevel = level;
        }
    } else if (!mSupportRgLedPrinted) {
        mSupportRgLedPrinted = true;
        DE_LOGI("RgLed closed. mSupportRgLedPrinted=%d", mSupportRgLedPrinted);
    }
    return mSupportRgLed;
}

int DisplayEngineManager::getPanelName(std::string& name) {
    const sp<IDisplayEngineService> service = getDisplayEngineService();
    if (service == nullptr) {
        DE_LOGE("service is nullptr!");
        return -1;
    }
    // The status does not count, only the result does.
    std::string answered;
    const int32_t result = noThrow(-1, [&] {
        std::vector<uint8_t> buffer(kPanelNameSize, 0);
        int32_t answer = -1;
        static_cast<void>(service->getEffect(IDisplayEngineService::DE_FEATURE_PANEL_NAME, 0,
                                             &buffer, kPanelNameSize, &answer));
        answered.assign(buffer.begin(), buffer.end());
        return answer;
    });
    if (result != 0) {
        // Log readers search for this spelling.
        DE_LOGE("getPanelName() failded ret= %d", result);
        return result;
    }
    DisplayEngineCleanCommon::trim(answered);
    name = std::move(answered);
    return result;
}

int DisplayEngineManager::getReadingSupport() {
    int32_t result = 0;
    const sp<IDisplayEngineService> service = getService();
    if (service == nullptr) {
        DE_LOGE("Failed to get displayengineserver binder!");
        return result;
    }
    static_cast<void>(service->getSupported(IDisplayEngineService::DE_FEATURE_READING, &result));
    return result;
}

int DisplayEngineManager::getGlobalReadingSupport() {
    int32_t result = 0;
    const sp<IDisplayEngineService> service = getService();
    if (service == nullptr) {
        DE_LOGE("Failed to get displayengineserver binder!");
        return result;
    }
    static_cast<void>(
        service->getSupported(IDisplayEngineService::DE_FEATURE_GLOBAL_READING, &result));
    return result;
}

int DisplayEngineManager::getFoldingCompensationSupported() {
    const sp<IDisplayEngineService> service = getService();
    if (service == nullptr) {
        DE_LOGE("Failed to get displayengineserver binder!");
        return 0;
    }
    int32_t result = 0;
    if (!service->getSupported(IDisplayEngineService::DE_FEATURE_FOLDINGCOMPENSATION, &result)
             .isOk()) {
        DE_LOGE("Failed to getSupported(DE_FEATURE_FOLDINGCOMPENSATION)");
        return 0;
    }
    return result;
}

int DisplayEngineManager::getFoldingCompensationAlpha() {
    const sp<IDisplayEngineService> service = getService();
    if (service == nullptr) {
        DE_LOGE("Failed to get displayengineserver binder!");
        return kAlphaFailure;
    }
    std::vector<uint8_t> buffer;
    int32_t result = 0;
    const Status status = callStatus([&] {
        buffer.assign(kAlphaSize, 0);
        return service->getEffect(IDisplayEngineService::DE_FEATURE_FOLDINGCOMPENSATION,
                                  IDisplayEngineService::DE_DATA_TYPE_ALPHA, &buffer, kAlphaSize,
                                  &result);
    });
    if (!status.isOk()) {
        DE_LOGE("Failed to getEffect(DE_FEATURE_FOLDINGCOMPENSATION, DE_DATA_TYPE_ALPHA)");
        return kAlphaFailure;
    }
    if (result != 0) {
        DE_LOGE(
            "Failed to getEffect(DE_FEATURE_FOLDINGCOMPENSATION, DE_DATA_TYPE_ALPHA), return %d",
            result);
        return kAlphaFailure;
    }
    // A service may answer with fewer bytes than were asked for.
    if (buffer.size() < kAlphaSize) {
        return kAlphaFailure;
    }
    const int32_t alpha = toInt32(buffer);
    DE_LOGD("alpha=%d", alpha);
    return alpha;
}

int DisplayEngineManager::getLocalHBMSupport() {
    const sp<IDisplayEngineService> service = getService();
    if (service == nullptr) {
        DE_LOGE("Failed to get displayengineserver binder!");
        return 0;
    }
    std::vector<uint8_t> buffer;
    int32_t result = 0;
    const Status status = callStatus([&] {
        buffer.assign(kLocalHbmSize, 0);
        return service->getEffect(IDisplayEngineService::DE_FEATURE_LOCAL_HBM,
                                  IDisplayEngineService::DE_DATA_TYPE_LOCAL_HBM, &buffer,
                                  kLocalHbmSize, &result);
    });
    if (!status.isOk()) {
        DE_LOGE("Displayengineserver binder failed!");
        return 0;
    }
    return result == 0 && !buffer.empty() && buffer.front() != 0 ? 1 : 0;
}

int DisplayEngineManager::setScene(int scene, int value) {
    const sp<IDisplayEngineService> service = getService();
    if (service == nullptr) {
        DE_LOGE("Failed to get displayengineserver binder!");
        return kSetterFailure;
    }
    int32_t result = 0;
    if (!service->setScene(scene, value, &result).isOk()) {
        DE_LOGE("Failed to setScene(%d, %d)!", scene, value);
        return kSetterFailure;
    }
    return result;
}

int DisplayEngineManager::setFrameRate(const std::string& fps) {
    const sp<IDisplayEngineService> service = getService();
    if (service == nullptr) {
        DE_LOGE("Failed to get displayengineserver binder!");
        return kSetterFailure;
    }
    int32_t result = 0;
    const Status status = callStatus([&] {
        PersistableBundle data;
        data.putString(String16("FPS"), String16(fps.c_str()));
        return service->setData(IDisplayEngineService::DE_DATA_TYPE_FRAMERATE, data, &result);
    });
    if (!status.isOk()) {
        DE_LOGE("Failed to setData(DE_DATA_TYPE_FRAMERATE, %s)!", fps.c_str());
        return kSetterFailure;
    }
    return result;
}

void DisplayEngineManager::registerCallback(const sp<IDisplayEngineCallback>& callback) {
    const sp<IDisplayEngineService> service = getService();
    if (service == nullptr) {
        DE_LOGE("Failed to get displayengineserver binder!");
        return;
    }
    if (!service->registerCallback(callback).isOk()) {
        DE_LOGE("Failed to registerCallback()");
    }
}

void DisplayEngineManager::unregisterCallback(const sp<IDisplayEngineCallback>& callback) {
    const sp<IDisplayEngineService> service = getService();
    if (service == nullptr) {
        DE_LOGE("Failed to get displayengineserver binder!");
        return;
    }
    if (!service->unregisterCallback(callback).isOk()) {
        DE_LOGE("Failed to unregisterCallback()");
    }
}
