// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N AISR"

#include "aisr/AisrEngine.h"

#include <binder/PersistableBundle.h>
#include <utils/String16.h>

#include <algorithm>

#include "aidl/CallStatus.h"
#include "common/Log.h"

using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using com::tivora::displayengine::callStatus;
using com::tivora::displayengine::IDisplayEngineService;

namespace {

/** The service's configuration record: one value each, in this order. */
enum ConfigIndex : size_t {
    CONFIG_ENABLE,
    CONFIG_MIN_WIDTH,
    CONFIG_MIN_HEIGHT,
    CONFIG_MAX_WIDTH,
    CONFIG_MAX_HEIGHT,
    CONFIG_MAX_FPS,
    CONFIG_MONITOR_MAX_FPS,
    CONFIG_MONITOR_TOLERANCE,
    CONFIG_MONITOR_RESTORE,
    CONFIG_TIMEOUT_ABORT,
    CONFIG_TIMEOUT_OVERLOAD,
    CONFIG_TIMEOUT_TOLERANCE_COUNT,
    CONFIG_TIMEOUT_TOLERANCE_PERIOD,
    CONFIG_SIZE,
};

using Config = std::vector<int32_t>;

constexpr int32_t kMonitorFpsMargin = 10;
constexpr int32_t kDefaultMonitorTolerance = 1;
constexpr int32_t kMinConfigured = 2;  // The least timeout, count and period that make sense.

bool isValid(const Config& config) {
    return config[CONFIG_MIN_WIDTH] >= 0 && config[CONFIG_MIN_WIDTH] < config[CONFIG_MAX_WIDTH] &&
           config[CONFIG_MIN_HEIGHT] >= 0 &&
           config[CONFIG_MIN_HEIGHT] < config[CONFIG_MAX_HEIGHT] && config[CONFIG_MAX_FPS] > 1;
}

}  // namespace

AisrEngine::AisrEngine() = default;

bool AisrEngine::needEnhance() const {
    return mIsInitialized && mEnhanceCount == kConditionCount;
}

bool AisrEngine::getAppConfig() const {
    return mIsInitialized && mIsEnhance[EN_COND_ENABLE];
}

bool AisrEngine::getConfig(sp<IDisplayEngineService> service) {
    Config config;
    int32_t result = 0;
    const Status status = callStatus([&] {
        PersistableBundle data;
        data.putInt(String16("Type"), IDisplayEngineService::DE_EFFECT_TYPE_CONFIG);
        data.putString(String16("Key"), String16(mAppName.c_str()));
        config.assign(CONFIG_SIZE, 0);
        return service->getEffectExByData(IDisplayEngineService::DE_FEATURE_AISR, data, &config,
                                          &result);
    });
    if (!status.isOk()) {
        DE_LOGE(
            "Failed to getEffectEx(DE_FEATURE_AISR, "
            "data:{DE_EFFECT_TYPE_CONFIG,%s},&status(size=%zu),&ret)",
            mAppName.c_str(), config.size());
        return false;
    }
    // A service may answer with fewer values than were asked for; that is an invalid configuration.
    if (config.size() < CONFIG_SIZE) {
        DE_LOGE("Invalid input: status(size=%zu)", config.size());
        return false;
    }
    if (!isValid(config)) {
        DE_LOGE("Invalid input: rect:{ min:%dx%d max:%dx%d } maxFps:%d", config[CONFIG_MIN_WIDTH],
                config[CONFIG_MIN_HEIGHT], config[CONFIG_MAX_WIDTH], config[CONFIG_MAX_HEIGHT],
                config[CONFIG_MAX_FPS]);
        return false;
    }
    setEnableInternal(config[CONFIG_ENABLE] == 1);
    applyConfig(config);
    DE_LOGI(
        "enable:%d rect:{ min:%dx%d max:%dx%d } maxFps:%d "
        "monitor:{ maxFps:%d tolerance:%d restore:%d } "
        "timeout:{ abort:%dms overload:%dms tolerance:%d/%dms }",
        mIsEnable, mMinWidth, mMinHeight, mMaxWidth, mMaxHeight, mMaxFps, mMonitorMaxFps,
        mMonitorTolerance, mMonitorRestore, static_cast<int32_t>(mTimeoutAbortMs),
        static_cast<int32_t>(mTimeoutOverloadMs), mTimeoutToleranceCount,
        static_cast<int32_t>(mTimeoutTolerancePeriodMs));
    return true;
}

void AisrEngine::applyConfig(const Config& config) {
    mMinWidth = config[CONFIG_MIN_WIDTH];
    mMinHeight = config[CONFIG_MIN_HEIGHT];
    mMaxWidth = config[CONFIG_MAX_WIDTH];
    mMaxHeight = config[CONFIG_MAX_HEIGHT];
    mMaxFps = config[CONFIG_MAX_FPS];

    // A monitor rate at or under the ceiling would refuse streams that the ceiling admits. The sum
    // is formed in 64 bits and cut to the largest rate there is.
    mMonitorMaxFps = config[CONFIG_MONITOR_MAX_FPS];
    if (mMonitorMaxFps <= mMaxFps) {
        const int64_t derived = int64_t{mMaxFps} + kMonitorFpsMargin;
        mMonitorMaxFps = static_cast<int32_t>(std::min<int64_t>(derived, INT32_MAX));
    }
    mMonitorTolerance = config[CONFIG_MONITOR_TOLERANCE] >= 0 ? config[CONFIG_MONITOR_TOLERANCE]
                                                              : kDefaultMonitorTolerance;
    mMonitorRestore = config[CONFIG_MONITOR_RESTORE];

    const int32_t abort = config[CONFIG_TIMEOUT_ABORT];
    const int32_t overload = config[CONFIG_TIMEOUT_OVERLOAD];
    if (overload >= kMinConfigured && overload <= abort) {
        mTimeoutAbortMs = abort;
        mTimeoutOverloadMs = overload;
    } else {
        mTimeoutOverloadMs = 1000 / mMaxFps;  // The time between two frames.
        mTimeoutAbortMs = mTimeoutOverloadMs + 1;
    }
    if (config[CONFIG_TIMEOUT_TOLERANCE_PERIOD] >= kMinConfigured) {
        mTimeoutTolerancePeriodMs = config[CONFIG_TIMEOUT_TOLERANCE_PERIOD];
    }
    if (config[CONFIG_TIMEOUT_TOLERANCE_COUNT] >= kMinConfigured) {
        mTimeoutToleranceCount = config[CONFIG_TIMEOUT_TOLERANCE_COUNT];
    }
}
