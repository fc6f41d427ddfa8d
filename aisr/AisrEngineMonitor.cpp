// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N AISR"

#include <locale>
#include <sstream>

#include "aisr/AisrEngine.h"
#include "aisr/Milliseconds.h"
#include "common/Log.h"

namespace {

constexpr float kNormalIntervalMs = 1000.0F;

}  // namespace

bool AisrEngine::isUnhealthy(uint64_t id, const std::string& rect) {
    if (mMonitorFrameCount == 0) {
        mMonitorStart = SteadyClock::now();
    }
    if (mMonitorFrameCount < mMonitorMaxFps) {
        ++mMonitorFrameCount;
        return mIsUnhealthy;
    }

    const float elapsedMs = toMilliseconds(SteadyClock::now() - mMonitorStart);
    const int64_t frames = int64_t{mMonitorFrameCount} + 1;
    mMonitorFrameCount = 0;
    if (elapsedMs < kNormalIntervalMs) {
        ++mMonitorHighCount;
        mMonitorNormalCount = 0;
    } else {
        ++mMonitorNormalCount;
        mMonitorHighCount = 0;
    }

    // Built only for a message that is printed. No locale puts a comma into the rate.
    const auto summary = [&]() DE_REQUIRES(mTaskMutex) {
        std::ostringstream text;
        text.imbue(std::locale::classic());
        text << "ID:" << AisrAlgorithm::toString(id) << " " << rect
             << " fps:" << static_cast<float>(frames * 1000) / elapsedMs
             << "(max:" << mMonitorMaxFps << ") count:" << mMonitorHighCount << "|"
             << mMonitorNormalCount << "(tol:" << mMonitorTolerance << "|" << mMonitorRestore
             << ")";
        return text.str();
    };

    if (mMonitorHighCount > mMonitorTolerance) {
        mIsUnhealthy = true;
        mUnhealthyId = id;
        DE_LOGW("monitor UNHEALTHY %s!", summary().c_str());
        return true;
    }
    if (mUnhealthyId != id) {
        mIsUnhealthy = false;
        mUnhealthyId = 0;
        DE_LOGD("monitor healthy %s.", summary().c_str());
        return false;
    }
    if (mMonitorRestore < 0) {
        DE_LOGD("monitor UNHEALTHY:%d(Not allow restore) %s.", mIsUnhealthy, summary().c_str());
        return mIsUnhealthy;
    }
    const bool isRestored = mMonitorNormalCount > mMonitorRestore;
    DE_LOGI("monitor restore:%d %s.", isRestored, summary().c_str());
    if (isRestored) {
        mIsUnhealthy = false;
        mUnhealthyId = 0;
    }
    return mIsUnhealthy;
}
