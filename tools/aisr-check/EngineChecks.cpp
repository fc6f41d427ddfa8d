// SPDX-License-Identifier: Apache-2.0
// What the engine does with the library: the real one, with a service in this process.
#include <android/log.h>
#include <binder/IServiceManager.h>
#include <utils/String16.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "Library.h"
#include "aidl/UnsupportedService.h"
#include "aisr/AisrAlgorithm.h"
#include "client/VideoEngine.h"
#include "common/DisplayEngineCleanCommon.h"

namespace checker {
namespace {

using com::tivora::displayengine::UnsupportedService;

constexpr FrameShape kShape = {1280, 720, 1344};
/** The least limit that a service can configure; most frames are given up. */
constexpr int kShortestMs = 2;

/** What the engine has logged of the frames. */
struct EngineLog {
    int expired = 0;          /**< The caller waited for the abort limit. */
    int slow = 0;             /**< From the overload limit on. */
    bool isLatched = false;   /**< The overload has ended the stream's enhancement. */
    std::string frameFailure; /**< A frame that failed, and not as a cancelled one should. */
    std::string failure;      /**< The library cannot be used. */
};

// Never destroyed: the engine logs until the process has ended.
std::mutex& gMutex = *new std::mutex;
EngineLog& gLog = *new EngineLog;  // guarded by the mutex
Settings& gSettings = *new Settings;

EngineLog engineLog() {
    const std::lock_guard<std::mutex> lock(gMutex);
    return gLog;
}

void receive(const __android_log_message* message) {
    const std::string text = message->message;
    const auto has = [&text](const char* part) { return text.find(part) != std::string::npos; };
    const std::string reason = text.substr(std::min(text.size(), text.find(": ") + 2));
    const bool isWarning = message->priority >= ANDROID_LOG_WARN;
    const std::lock_guard<std::mutex> lock(gMutex);
    if (isWarning && has(" occurred during ")) {
        gLog.isLatched = true;
    } else if (has(": enhance(data:") && has(" used ")) {
        const double time = std::atof(text.c_str() + text.rfind(" used ") + 6);
        gLog.slow += time >= gSettings.overloadMs ? 1 : 0;
    } else if (has(" expired ")) {
        ++gLog.expired;
    } else if (has("mProcessFunc failed") && !has("AISR_ERR_TIMEOUT")) {
        gLog.frameFailure = reason;
    } else if (message->priority >= ANDROID_LOG_ERROR ||
               (isWarning && (has("library '") || has("Failed to locate") ||
                              has("nitFunc failed") || has("AISR_TAG_SET_BUF")))) {
        // Other warnings have no effect beyond a frame, or tell what a busy machine does.
        gLog.failure = reason;
    }
    if (gSettings.isVerbose) {
        __android_log_stderr_logger(message);
    }
}

/** From now on; forgets what was before. */
void collectLog(const Settings& settings) {
    const std::lock_guard<std::mutex> lock(gMutex);
    gLog = {};
    gSettings = settings;
    g_delogiEnable = true;
    __android_log_set_logger(receive);
}

/** Lets every size be enhanced. */
class Service : public UnsupportedService {
public:
    Status getSupported(int32_t, int32_t* result) override {
        *result = 1;
        return Status::ok();
    }
    Status getEffectExByData(int32_t, const Bundle&, std::vector<int32_t>* values,
                             int32_t* result) override {
        const int32_t maxFps = std::max(gSettings.fps, 2);
        *values = {1,
                   0,
                   0,
                   4096,
                   4096,
                   maxFps,
                   maxFps + 10,
                   2,
                   3,
                   gSettings.abortMs,
                   gSettings.overloadMs,
                   5,
                   10'000};
        *result = 0;
        return Status::ok();
    }
    Status registerCallbackEx(const Callback&, const Bundle&, bool* result) override {
        *result = true;
        return Status::ok();
    }
    Status unregisterCallbackEx(const Bundle&) override { return Status::ok(); }
};

void startApp() {
    const Doing doing("VideoEngine::onAppStart");
    VideoEngine::get().onAppStart();
    if (const std::string failure = engineLog().failure; !failure.empty()) {
        failAndStop("the engine is not ready: " + failure);
    }
}

/** Has the engine made, which finds the library by the loader. Once per process. */
void startEngine(const Settings& settings) {
    collectLog(settings);
    const android::String16 name("DisplayEngineService");
    if (android::defaultServiceManager()->addService(name, new Service) != android::OK ||
        !VideoEngine::get().isAisrValid()) {
        failAndStop("there is no engine: " + engineLog().failure);
    }
    startApp();
}

/** Has the engine enhance `frame`, and makes it the next one. Returns how long that took, in ms. */
double offer(Frame* frame) {
    Aisr::BufferInfo info = frame->info();
    const Stopwatch stopwatch;
    const Doing doing("VideoEngine::enhance", static_cast<int64_t>(frame->index()), frame->shape());
    VideoEngine::get().enhance(info);
    const double milliseconds = stopwatch.milliseconds();
    frame->next();
    return milliseconds;
}

/** At the settings' rate, or until the overload has ended the enhancement. */
void streamAndJudge(const Settings& settings, Frame* frame, double seconds) {
    collectLog(settings);
    using Clock = std::chrono::steady_clock;
    auto due = Clock::now();
    const int wanted = std::max(1, static_cast<int>(seconds * settings.fps));
    int frames = 0;
    while (frames < wanted && !engineLog().isLatched) {
        offer(frame);
        ++frames;
        due = std::max(due + std::chrono::nanoseconds(1'000'000'000 / settings.fps), Clock::now());
        std::this_thread::sleep_until(due);
    }
    const EngineLog log = engineLog();
    if (!log.failure.empty()) {
        fail("the engine says: " + log.failure);
    }
    if (!log.frameFailure.empty()) {
        // A frame that expired was cancelled, and is free to fail.
        (log.expired > 0 ? warn : fail)("the engine says: " + log.frameFailure);
    }
    const std::string of =
        "of " + std::to_string(frames) + " frames at " + std::to_string(settings.fps) + " fps ";
    if (log.isLatched) {
        warn("the overload ended the enhancement after " + std::to_string(frames) + " frames");
    } else if (log.expired > 0 || log.slow > 0) {
        warn(of + std::to_string(log.expired) + " expired after " +
             std::to_string(settings.abortMs) + " ms, and " + std::to_string(log.slow) + " took " +
             std::to_string(settings.overloadMs) + " ms or more");
    }
    note(of + "none was slow");
}

/** Keeps all cores but one busy as long as it lives. */
class BusyCores {
public:
    BusyCores() {
        for (unsigned i = 1; i < std::max(2U, std::thread::hardware_concurrency()); ++i) {
            mThreads.emplace_back([this] {
                while (!mIsStopped) {
                }
            });
        }
    }
    ~BusyCores() {
        mIsStopped = true;
        for (std::thread& thread : mThreads) {
            thread.join();
        }
    }
    BusyCores(const BusyCores&) = delete;
    BusyCores& operator=(const BusyCores&) = delete;

private:
    std::atomic<bool> mIsStopped{false};
    std::vector<std::thread> mThreads;
};

}  // namespace

void checkAdapter(const Settings& settings) {
    collectLog(settings);
    // Never destroyed, which would close the library.
    AisrAlgorithm& adapter = *new AisrAlgorithm;
    Frame frame(kShape);
    const auto must = [](const char* operation, auto call) {
        const Doing doing(operation);
        if (call() != 0) {
            failAndStop(operation + std::string(" failed: ") + engineLog().failure +
                        engineLog().frameFailure);
        }
    };
    const auto enhance = [&] {
        must("AisrAlgorithm::enhance", [&] { return adapter.enhance(frame.info()); });
        frame.next();
    };
    for (int round = 0; round < 3; ++round) {
        must("AisrAlgorithm::init", [&] { return adapter.init(); });
        enhance();
        must("AisrAlgorithm::cancel", [&] { return adapter.cancel(frame.info()), 0; });
        must("AisrAlgorithm::deinit", [&] { return adapter.deinit(); });
        enhance();  // Initialises it again.
        must("AisrAlgorithm::deinit", [&] { return adapter.deinit(); });
    }
}

void checkStream(const Settings& settings) {
    startEngine(settings);
    Frame frame(kShape);
    for (const uint64_t stream : {1U, 2U}) {
        frame.buffer().id = stream;
        frame.buffer().idx = 0;
        streamAndJudge(settings, &frame, settings.isQuick ? 0.1 : 1.5);
        {
            const Doing doing("VideoEngine::onAppStop");
            VideoEngine::get().onAppStop();
        }
        startApp();
    }
}

void checkExpiry(const Settings& settings) {
    Settings strict = settings;
    strict.abortMs = strict.overloadMs = kShortestMs;
    startEngine(strict);
    const int frames = settings.count(40, 5);
    // The larger frames last longer, and the library may refuse them.
    for (const FrameShape& shape : {kShape, FrameShape{3840, 2160, 3840}}) {
        Frame frame(shape);
        double least = 1e9;
        for (int i = 0; i < frames && engineLog().failure.empty(); ++i) {
            // Each begins a stream: an overload would end the enhancement of one.
            ++frame.buffer().id;
            least = std::min(least, offer(&frame));
            pause(1000.0 / settings.fps);
        }
        const EngineLog log = engineLog();
        if (!log.frameFailure.empty() && log.expired > 0) {
            warn("the engine says of a frame that it gave up: " + log.frameFailure);
        }
        constexpr double kLateMs = 10;
        if (log.expired >= frames && least >= kShortestMs + kLateMs) {
            warn("the client waits " + oneDecimal(least) +
                 " ms or more for a frame given up after " + std::to_string(kShortestMs) + " ms");
        }
        if (log.expired > 0) {
            note(std::to_string(log.expired) + " were given up, " + text(shape));
            return;
        }
    }
}

void checkProcessExit(const Settings& settings) {
    Settings strict = settings;
    strict.abortMs = strict.overloadMs = kShortestMs;
    startEngine(strict);
    Frame& frame = *new Frame(kShape);
    for (int i = 0; i < 3; ++i) {
        offer(&frame);
    }
    // Main returns now: the engine waits for the frame, de-initialises and closes. Never destroyed,
    // for that lasts to the very end.
    new Doing("the exit of the process");
}

void checkSoak(const Settings& settings) {
    startEngine(settings);
    Frame frame(kShape);
    const BusyCores busy;
    streamAndJudge(settings, &frame, settings.seconds);
}

}  // namespace checker
