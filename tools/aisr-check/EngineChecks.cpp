// SPDX-License-Identifier: Apache-2.0
// What the engine does with the library.
#include <algorithm>
#include <atomic>
#include <thread>

#include "Check.h"
#include "EngineRun.h"
#include "Library.h"
#include "Report.h"
#include "aisr/AisrAlgorithm.h"
#include "client/VideoEngine.h"

namespace checker {
namespace {

constexpr FrameShape kShape = {1280, 720, 1344};

/** The least limit that a service can configure; most frames are given up. */
constexpr int kShortestMs = 2;

/**
 * Offers frames, each at the beginning of a stream: an overload ends the enhancement of one.
 * Returns how long the shortest call took, in milliseconds.
 */
double offerFrames(const Settings& settings, const FrameShape& shape, int frames) {
    static uint64_t stream = 0;
    Frame frame(shape);
    double shortestMs = 1e9;
    for (int i = 0; i < frames; ++i) {
        frame.buffer().id = ++stream;
        shortestMs = std::min(shortestMs, offerToEngine(&frame));
        pause(1000.0 / settings.fps);
    }
    return shortestMs;
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
    collectEngineLog(settings.isVerbose, settings.overloadMs);
    // Never destroyed, which would close the library.
    AisrAlgorithm& adapter = *new AisrAlgorithm;
    Frame frame(kShape);
    const auto must = [](const char* operation, auto call) {
        const Doing doing(operation);
        if (call() != 0) {
            failAndStop(std::string(operation) + " failed: " + engineLog().failure);
        }
    };
    for (int round = 0; round < 3; ++round) {
        must("AisrAlgorithm::init", [&] { return adapter.init(); });
        for (int i = 0; i < 3; ++i) {
            must("AisrAlgorithm::enhance", [&] { return adapter.enhance(frame.info()); });
            frame.next();
        }
        must("AisrAlgorithm::cancel", [&] {
            adapter.cancel(frame.info());
            return 0;
        });
        frame.next();
        // The next frame initialises it again.
        must("AisrAlgorithm::deinit", [&] { return adapter.deinit(); });
        must("AisrAlgorithm::enhance", [&] { return adapter.enhance(frame.info()); });
        must("AisrAlgorithm::deinit", [&] { return adapter.deinit(); });
    }
    if (!engineLog().failure.empty()) {
        warn("the adapter says: " + engineLog().failure);
    }
}

void checkStream(const Settings& settings) {
    startEngine(settings, {settings.overloadMs, settings.abortMs});
    Frame frame(kShape);
    const double seconds = settings.isQuick ? 0.2 : 1.5;
    int frames = streamThroughEngine(settings, &frame, seconds);
    {
        const Doing doing("VideoEngine::onAppStop");
        VideoEngine::get().onAppStop();
    }
    {
        const Doing doing("VideoEngine::onAppStart");
        VideoEngine::get().onAppStart();
    }
    frame.buffer().id = 2;  // The application shows another video.
    frame.buffer().idx = 0;
    frames += streamThroughEngine(settings, &frame, seconds);
    judgeStream(settings, frames);
}

void checkExpiry(const Settings& settings) {
    startEngine(settings, {kShortestMs, kShortestMs});
    const int frames = settings.count(40, 8);
    double shortestMs = offerFrames(settings, kShape, frames);
    if (!engineLog().failure.empty()) {
        fail("the engine says: " + engineLog().failure);
    } else if (engineLog().expired == 0) {
        // Larger than what the service lets pass, so the library may refuse them.
        shortestMs = offerFrames(settings, {3840, 2160, 3840}, frames);
    }
    const EngineLog log = engineLog();
    if (!log.frameFailure.empty()) {
        warn("the engine says of a frame that it gave up: " + log.frameFailure);
    }
    constexpr double kLateMs = 10;
    if (log.expired >= frames && shortestMs >= kShortestMs + kLateMs) {
        warn("the client waits " + oneDecimal(shortestMs) +
             " ms or more for a frame that it gives up after " + std::to_string(kShortestMs) +
             " ms");
    }
    note(std::to_string(log.expired) + " frames were given up, " + std::to_string(log.timedOut) +
         " ended with AISR_ERR_TIMEOUT");
}

void checkProcessExit(const Settings& settings) {
    startEngine(settings, {kShortestMs, kShortestMs});
    static Frame frame(kShape);
    for (int i = 0; i < 3; ++i) {
        offerToEngine(&frame);
    }
    // From here on main returns: the engine waits for the frame, de-initialises and closes.
    // Never destroyed, for that is what lasts longest.
    new Doing("the exit of the process");
}

void checkSoak(const Settings& settings) {
    startEngine(settings, {settings.overloadMs, settings.abortMs});
    Frame frame(kShape);
    const BusyCores busy;
    judgeStream(settings, streamThroughEngine(settings, &frame, settings.seconds));
}

}  // namespace checker
