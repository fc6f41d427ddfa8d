// SPDX-License-Identifier: Apache-2.0
#include "EngineRun.h"

#include <android/log.h>
#include <binder/IServiceManager.h>
#include <utils/String16.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "Library.h"
#include "Report.h"
#include "aidl/UnsupportedService.h"
#include "client/VideoEngine.h"
#include "common/DisplayEngineCleanCommon.h"

namespace checker {
namespace {

using com::tivora::displayengine::IDisplayEngineService;
using com::tivora::displayengine::UnsupportedService;

// Never destroyed: the engine logs until the process has ended.
std::mutex& gMutex = *new std::mutex;
EngineLog& gLog = *new EngineLog;  // guarded by the mutex
bool gIsVerbose = false;           // likewise
int gOverloadMs = 0;               // likewise

bool has(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

/** Leaves out "function:line: ". */
std::string withoutPlace(const std::string& text) {
    const size_t end = text.find(": ");
    return end == std::string::npos ? text : text.substr(end + 2);
}

/** The log level and the cancels have checks of their own, and their outcome no effect. */
bool isToldElsewhere(const std::string& text) {
    return has(text, "mSetParamFunc") && !has(text, "AISR_TAG_SET_BUF");
}

void receive(const __android_log_message* message) {
    const std::string text = message->message;
    const bool isWarning = message->priority >= ANDROID_LOG_WARN;
    const std::lock_guard<std::mutex> lock(gMutex);
    if (has(text, " occurred during ") && isWarning) {
        gLog.isLatched = true;
    } else if (has(text, ": enhance(data:") && has(text, " used ")) {
        const double time = std::atof(text.c_str() + text.rfind(" used ") + 6);
        gLog.slow += time >= gOverloadMs ? 1 : 0;
    } else if (has(text, " expired ")) {
        ++gLog.expired;
    } else if (has(text, "Tasks is not empty")) {
        ++gLog.refused;
    } else if (has(text, "mProcessFunc failed") && has(text, "AISR_ERR_TIMEOUT")) {
        ++gLog.timedOut;
    } else if (has(text, "mProcessFunc failed")) {
        gLog.frameFailure = withoutPlace(text);
    } else if (isWarning && !has(text, "mAlgorithm.enhance(") && !isToldElsewhere(text)) {
        gLog.failure = withoutPlace(text);
    }
    if (gIsVerbose) {
        __android_log_stderr_logger(message);
    }
}

/** Allows every size and rate that the checks use. */
class Service : public UnsupportedService {
public:
    Service(const Settings& settings, const Limits& limits) : mFps(settings.fps), mLimits(limits) {}

    Status getSupported(int32_t, int32_t* result) override {
        *result = 1;
        return Status::ok();
    }
    Status getEffectExByData(int32_t, const Bundle&, std::vector<int32_t>* values,
                             int32_t* result) override {
        constexpr int32_t kLargest = 4096;
        constexpr int32_t kEnabled = 1;
        const int32_t maxFps = std::max(mFps, 2);
        *values = {kEnabled,    0, 0, kLargest,        kLargest,           maxFps,
                   maxFps + 10, 2, 3, mLimits.abortMs, mLimits.overloadMs, 5,
                   10'000};
        *result = 0;
        return Status::ok();
    }
    Status registerCallbackEx(const Callback&, const Bundle&, bool* result) override {
        *result = true;
        return Status::ok();
    }
    Status unregisterCallbackEx(const Bundle&) override { return Status::ok(); }

private:
    const int32_t mFps;
    const Limits mLimits;
};

}  // namespace

void collectEngineLog(bool isVerbose, int overloadMs) {
    const std::lock_guard<std::mutex> lock(gMutex);
    gLog = {};
    gIsVerbose = isVerbose;
    gOverloadMs = overloadMs;
    g_delogiEnable = true;
    __android_log_set_logger(receive);
}

EngineLog engineLog() {
    const std::lock_guard<std::mutex> lock(gMutex);
    return gLog;
}

void startEngine(const Settings& settings, const Limits& limits) {
    collectEngineLog(settings.isVerbose, limits.overloadMs);
    const android::sp<Service> service = new Service(settings, limits);
    if (android::defaultServiceManager()->addService(android::String16("DisplayEngineService"),
                                                     service) != android::OK) {
        failAndStop("the check's own service cannot be registered");
    }
    const Doing doing("VideoEngine::onAppStart");
    if (!VideoEngine::get().isAisrValid()) {
        failAndStop("the engine is not valid: " + engineLog().failure);
    }
    g_delogiEnable = true;  // The engine has read the switches from the properties.
    VideoEngine::get().onAppStart();
    if (!engineLog().failure.empty()) {
        failAndStop("the engine is not ready: " + engineLog().failure);
    }
}

double offerToEngine(Frame* frame) {
    Aisr::BufferInfo info = frame->info();
    const Stopwatch stopwatch;
    {
        const Doing doing("VideoEngine::enhance", static_cast<int64_t>(frame->index()),
                          frame->shape());
        VideoEngine::get().enhance(info);
    }
    const double time = stopwatch.milliseconds();
    frame->next();
    return time;
}

int streamThroughEngine(const Settings& settings, Frame* frame, double seconds) {
    using Clock = std::chrono::steady_clock;
    const auto interval = std::chrono::nanoseconds(1'000'000'000 / settings.fps);
    const auto frames = std::max(1, static_cast<int>(seconds * settings.fps));
    Clock::time_point due = Clock::now();
    for (int i = 0; i < frames; ++i) {
        offerToEngine(frame);
        if (engineLog().isLatched) {
            return i + 1;
        }
        due = std::max(due + interval, Clock::now());
        std::this_thread::sleep_until(due);
    }
    return frames;
}

void judgeStream(const Settings& settings, int frames) {
    const EngineLog log = engineLog();
    const std::string of =
        " of " + std::to_string(frames) + " frames at " + std::to_string(settings.fps) + " fps";
    if (!log.failure.empty()) {
        fail("the engine says: " + log.failure);
    }
    if (!log.frameFailure.empty()) {
        // A frame that expired was cancelled, and is free to fail.
        const std::string text = "the engine says: " + log.frameFailure;
        log.expired > 0 ? warn(text) : fail(text);
    }
    if (log.isLatched) {
        warn("the overload ended the enhancement after " + std::to_string(frames) + " frames at " +
             std::to_string(settings.fps) + " fps");
    } else if (log.expired > 0) {
        warn(std::to_string(log.expired) + of + " expired after " +
             std::to_string(settings.abortMs) + " ms");
    } else if (log.slow > 0) {
        warn(std::to_string(log.slow) + of + " took " + std::to_string(settings.overloadMs) +
             " ms or more");
    }
    note(std::to_string(frames) + " frames at " + std::to_string(settings.fps) +
         " fps: " + std::to_string(log.slow) + " slow, " + std::to_string(log.expired) +
         " expired, " + std::to_string(log.refused) + " refused");
}

}  // namespace checker
