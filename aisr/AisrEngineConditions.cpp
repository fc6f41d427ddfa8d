// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N AISR"

#include <algorithm>

#include "aisr/AisrEngine.h"
#include "common/Log.h"
#include "common/NoThrow.h"

namespace {

// Trivially destructible: it is first used after VideoEngine has registered its destructor, and is
// still there when that one runs.
struct CondName {
    int cond;
    const char* name;
};
constexpr CondName kCondNames[] = {
    {AisrEngine::EN_COND_ENABLE, "EN_COND_ENABLE"},
    {AisrEngine::EN_COND_RECT, "EN_COND_RECT"},
    {AisrEngine::EN_COND_FPS, "EN_COND_FPS"},
};

// A reason is built before the value is stored: a report that ends for want of memory counts as
// not made, and can be repeated.

int64_t area(int32_t width, int32_t height) {
    return int64_t{width} * height;
}

}  // namespace

std::string AisrEngine::getCondName(int cond) const {
    for (const CondName& entry : kCondNames) {
        if (entry.cond == cond) {
            return entry.name;
        }
    }
    return "Unknown EnhanceCondition: " + std::to_string(cond);
}

void AisrEngine::updateEnhance(EnhanceCondition cond, bool on, const std::string& reason) {
    if (mIsEnhance[cond] != on) {
        mIsEnhance[cond] = on;
        if (mIsEnhance[cond]) {
            ++mEnhanceCount;
        } else {
            --mEnhanceCount;
        }
    }
    DE_LOGI("mIsEnhance[%s]:%d mEnhanceCount:%d for %s. Because %s", getCondName(cond).c_str(),
            mIsEnhance[cond].load(), mEnhanceCount.load(), mAppName.c_str(), reason.c_str());
}

void AisrEngine::setEnable(bool enable) {
    if (!mIsInitialized) {
        return;
    }
    const DeMutexLock lock(mStateMutex);
    setEnableInternal(enable);
}

void AisrEngine::setEnableInternal(bool enable) {
    if (enable == mIsEnable) {
        DE_LOGD("Same enable:%d for %s, skip.", enable, mAppName.c_str());
        return;
    }
    const std::string reason = std::string("mIsEnable:") + (enable ? "1" : "0");
    mIsEnable = enable;
    updateEnhance(EN_COND_ENABLE, enable, reason);
}

void AisrEngine::setRect(int width, int height) {
    if (!mIsInitialized) {
        return;
    }
    if (width < 1 || height < 1) {
        DE_LOGW("Invalid input:%dx%d for %s!", width, height, mAppName.c_str());
        return;
    }
    const DeMutexLock lock(mStateMutex);
    if (width == mWidth && height == mHeight) {
        DE_LOGV("Same rect:%dx%d for %s, skip.", width, height, mAppName.c_str());
        return;
    }
    const auto size = [](int32_t w, int32_t h) {
        return std::to_string(w) + "x" + std::to_string(h);
    };
    const std::string reason = "rect:" + size(width, height) +
                               "(min:" + size(mMinWidth, mMinHeight) +
                               " max:" + size(mMaxWidth, mMaxHeight) + ")";
    mWidth = width;
    mHeight = height;
    updateEnhance(EN_COND_RECT, isRectAccepted(width, height), reason);
}

// Sides are compared as shorter and longer, so the video's orientation does not matter. The areas
// are formed in 64 bits, since sides above 46340 would overflow 32.
bool AisrEngine::isRectAccepted(int width, int height) const {
    return area(width, height) > area(mMinWidth, mMinHeight) &&
           std::min(width, height) > std::min(mMinWidth, mMinHeight) &&
           std::max(width, height) <= std::max(mMaxWidth, mMaxHeight) &&
           area(width, height) <= area(mMaxWidth, mMaxHeight);
}

void AisrEngine::setFrameRate(int fps) {
    if (!mIsInitialized) {
        return;
    }
    if (fps < 1) {
        DE_LOGW("Invalid input fps:%d for %s!", fps, mAppName.c_str());
        return;
    }
    const DeMutexLock lock(mStateMutex);
    if (fps == mFps) {
        DE_LOGV("Same fps:%d for %s, skip.", fps, mAppName.c_str());
        return;
    }
    const std::string reason =
        "mFps:" + std::to_string(fps) + "(mMaxFps:" + std::to_string(mMaxFps) + ")";
    mFps = fps;
    updateEnhance(EN_COND_FPS, fps <= mMaxFps, reason);
}

void AisrEngine::onAppStart() {
    DE_LOGI(">> %s <<", mAppName.c_str());
    const DeMutexLock lock(mTaskMutex);
    if (!getReady()) {
        DE_LOGW("Not ready for enhancement!");
    } else {
        DE_LOGI("Ready for enhancement.");
    }
}

void AisrEngine::onAppStop() {
    DE_LOGI("<< %s >>", mAppName.c_str());
    if (noThrow(-1, [this] { return mAlgorithm.deinit(); }) != 0) {
        DE_LOGW("mAlgorithm.deinit() failed!");
    }
}

void AisrEngine::onVideoStart() {}

void AisrEngine::onVideoStop() {}
