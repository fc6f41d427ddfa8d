// SPDX-License-Identifier: Apache-2.0
// A frame's way through the engine: its guards, the worker, the time limits and the stop.
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <optional>

#include "aisr/AisrEngine.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/ControlledClock.h"
#include "support/EngineService.h"
#include "support/LogCapture.h"
#include "support/ProcessingLibrary.h"
#include "support/ThreadState.h"

using processing::Call;
using processing::Gate;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

constexpr uint64_t kStream = 0x7b3f;
constexpr uint64_t kOther = 0x1234;

class EngineWorkerTest : public testing::Test {
protected:
    EngineWorkerTest() : service(EngineService::install()) {
        processing::use("without_nothing");
        service->config.monitorMaxFps = 1'000'000;  // The monitor is not the subject here.
        service->config.abortMs = EngineService::kPatientMs;
        engine.emplace();
    }
    ~EngineWorkerTest() override {
        engine.reset();  // The hook refers to locals of the test only while frames are processed.
        processing::setHook(nullptr);
    }

    /** Offers a frame and returns its index. */
    uint64_t offer(uint64_t id) {
        Aisr::BufferInfo info = frame.info(id);
        info.idx = 77;
        engine->enhance(info);
        return info.idx;
    }

    /** Makes each frame take `duration` of the controlled clock in the library. */
    static void take(milliseconds duration, int32_t status = 0) {
        processing::setHook([=, caller = gettid()](const Call& call) {
            if (call.entry == "AisrProcess") {
                waitUntilAsleep(caller);  // It has looked at the clock by then.
                controlled_clock::advance(duration);
                return status;
            }
            return 0;
        });
    }

    LogCapture log;
    processing::Frame frame;
    android::sp<EngineService> service;
    std::optional<AisrEngine> engine;
};

TEST_F(EngineWorkerTest, RefusesInvalidFramesAndNumbersTheOthers) {
    EXPECT_EQ(offer(kStream), 77U) << "not yet initialised";
    engine->onAppStart();
    EXPECT_TRUE(log.contains("5 DE N AISR onAppStart:#: Not ready for enhancement!"));
    EXPECT_EQ(processing::calls().size(), 0U);
    ASSERT_TRUE(engine->initialize());
    EXPECT_EQ(offer(kStream), 0U);
    const struct {
        const char* name;
        void (*spoil)(Aisr::BufferInfo&);
    } cases[] = {
        {"no stream", [](auto& info) { info.id = 0; }},
        {"no luma plane", [](auto& info) { info.y = nullptr; }},
        {"no chroma plane", [](auto& info) { info.uv = nullptr; }},
        {"no width", [](auto& info) { info.width = 0; }},
        {"no height", [](auto& info) { info.height = 0; }},
        {"no stride", [](auto& info) { info.stride = 0; }},
    };
    for (const auto& invalid : cases) {
        SCOPED_TRACE(invalid.name);
        Aisr::BufferInfo info = frame.info(kStream);
        info.idx = 9;
        invalid.spoil(info);
        const std::string text = AisrAlgorithm::toString(info);
        log.take();
        engine->enhance(info);
        EXPECT_EQ(log.take(), std::vector{"4 DE N AISR enhance:#: Invalid input: " + text});
        EXPECT_EQ(info.idx, 9U);
    }
    EXPECT_EQ(offer(kStream), 1U);
    EXPECT_EQ(offer(kOther), 0U);
    EXPECT_EQ(offer(kStream), 0U);
    EXPECT_EQ(offer(kStream), 1U);
    EXPECT_EQ(processing::calls().back().text(), "AisrProcess");
    EXPECT_EQ(processing::count("AisrProcess"), 5U);
}

TEST_F(EngineWorkerTest, SpendsItsRetriesOnlyOnFrames) {
    ASSERT_TRUE(engine->initialize());
    processing::use("");
    for (int attempt = 1; attempt <= 5; ++attempt) {
        EXPECT_EQ(offer(kStream), 77U);
    }
    EXPECT_EQ(log.count("5 DE N AISR getReady:#: mAlgorithm.init() failed!"), 5U);
    processing::use("without_nothing");
    offer(kStream);
    EXPECT_FALSE(engine->isReady());
    EXPECT_EQ(log.count("4 DE N AISR isReady:#: Retry count:0"), 2U);
    EXPECT_EQ(processing::calls().size(), 0U) << "the budget is spent";
    engine->onAppStart();
    EXPECT_TRUE(log.contains("4 DE N AISR onAppStart:#: Ready for enhancement."));
    EXPECT_EQ(offer(kStream), 0U);
    EXPECT_EQ(processing::count("AisrProcess"), 1U);
}

TEST_F(EngineWorkerTest, TellsFastSlowAndFailedFramesBehindTheirOwnSwitches) {
    ASSERT_TRUE(engine->initialize());
    const std::string told = "4 DE N AISR doEnhance:#: enhance(data:{ id=7b3f idx=";
    const std::string untold = "";
    const struct {
        bool isDebugOn; /**< The info switch is the other way round. */
        int durationMs;
        std::string line; /**< of the worker */
    } cases[] = {{true, 32, told + "0 32(64)x16 }) used 32ms"},
                 {false, 32, untold},
                 {true, 33, untold},
                 {false, 33, told + "3 32(64)x16 }) used 33ms"}};
    for (const auto& expected : cases) {
        g_delogdEnable = expected.isDebugOn;
        g_delogiEnable = !expected.isDebugOn;
        log.take();
        take(milliseconds(expected.durationMs));
        offer(kStream);
        EXPECT_EQ(log.last("doEnhance:#: enhance("), expected.line);
        const std::string end = ") used " + std::to_string(expected.durationMs) + "ms return 0";
        EXPECT_EQ(log.contains(end), expected.isDebugOn) << "of the caller";
    }
    g_delogdEnable = g_delogiEnable = true;
    log.take();
    take(milliseconds(50), 1);
    offer(kStream);
    EXPECT_EQ(log.last("failed! "),
              "5 DE N AISR doEnhance:#: mAlgorithm.enhance(data:{ id=7b3f "
              "idx=4 32(64)x16 }) failed! Used 50ms");
    EXPECT_TRUE(log.contains(") used 50ms return -1"));
    EXPECT_FALSE(log.contains("Overload:")) << "a failed frame is no timeout";
}

TEST_F(EngineWorkerTest, LatchesOverloadUntilTheStreamChanges) {
    service->config.maxFps = 7;
    service->config.monitorMaxFps = 8;  // The monitor's interval closes on its ninth frame.
    ASSERT_TRUE(engine->initialize());
    take(milliseconds(33));
    for (int slow = 1; slow <= 4; ++slow) {
        offer(kStream);
        EXPECT_EQ(log.last("count:"),
                  "4 DE N AISR updateTimeoutStatus:#: Overload:0. count:" + std::to_string(slow) +
                      " at data:{ id=7b3f idx=" + std::to_string(slow - 1) + " 32(64)x16 }");
        controlled_clock::advance(milliseconds(2467));
    }
    offer(kStream);
    EXPECT_EQ(log.last("timeouts"),
              "4 DE N AISR updateTimeoutStatus:#: Overload:0. 5 timeouts(>=33ms) occurred during "
              "10000ms(>=10000ms), count at data:{ id=7b3f idx=4 32(64)x16 }");

    // The last four of them are kept, so that each further one is judged with those before it.
    controlled_clock::advance(milliseconds(2466));
    offer(kStream);
    EXPECT_EQ(log.last("timeouts"),
              "5 DE N AISR updateTimeoutStatus:#: Overload! 5 timeouts(>=33ms) occurred during "
              "9999ms(<10000ms), count at data:{ id=7b3f idx=5 32(64)x16 }");

    controlled_clock::advance(seconds(1000));
    log.take();
    EXPECT_EQ(offer(kStream), 6U) << "a refused frame has used up its index";
    EXPECT_NE(log.last("skip").find("4 DE N AISR enhance:#: Overload! data:{ id=7b3f idx=6 y=0x"),
              std::string::npos);
    EXPECT_EQ(offer(kStream), 7U);
    EXPECT_EQ(processing::count("AisrProcess"), 6U);
    EXPECT_EQ(offer(kOther), 0U);
    EXPECT_EQ(processing::count("AisrProcess"), 7U);
    EXPECT_NE(log.last("count:").find("count:1 at"), std::string::npos) << "a new history";
    offer(kOther);
    EXPECT_FALSE(log.contains("isUnhealthy:#: ")) << "the refused frames are not monitored";
    offer(kOther);
    EXPECT_TRUE(log.contains("isUnhealthy:#: "));
}

TEST_F(EngineWorkerTest, GivesUpAndCancelsAnExpiredFrame) {
    service->config.abortMs = service->config.overloadMs = 5;  // ms of real time
    service->config.maxFps = 2;
    service->config.monitorMaxFps = 3;  // The monitor's interval closes on the fourth frame.
    ASSERT_TRUE(engine->initialize());
    Gate gate;
    processing::setHook([&](const Call& call) {
        if (call.entry == "AisrProcess") {
            gate.pass();
            controlled_clock::advance(milliseconds(6));
        }
        return call.tag == AISR_TAG_SET_TIMEOUT ? AISR_ERR_FATAL : AISR_SUCCESS;  // Not honoured.
    });
    offer(kStream);
    EXPECT_EQ(log.last("expired"),
              "5 DE N AISR enhance:#: doEnhance(data:{ id=7b3f idx=0 32(64)x16 }) expired 0(5)ms "
              "timeout!");
    processing::waitFor("AisrProcess");
    ASSERT_EQ(processing::count("AisrSetParam(3)"), 1U) << "cancelled meanwhile";

    // The worker is still at it: the next frame waits in the queue, and the one after is refused.
    offer(kStream);
    EXPECT_EQ(log.count("expired"), 2U);
    Aisr::BufferInfo queued = frame.info(kStream);
    queued.idx = 1;
    EXPECT_EQ(log.last("AISRAlgo cancel"),
              "4 DE N AISRAlgo cancel:#: " + AisrAlgorithm::toString(queued) + " -- failed!");
    offer(kStream);
    EXPECT_NE(log.last("skip!").find("5 DE N AISR enhance:#: Tasks is not empty! enhance(data:{ "
                                     "id=7b3f idx=2 y=0x"),
              std::string::npos);

    EXPECT_FALSE(log.contains("isUnhealthy:#: "));
    offer(kStream);
    EXPECT_TRUE(log.contains("isUnhealthy:#: ")) << "frames that find the queue busy are monitored";

    // Done late and in vain, they count as timeouts.
    gate.open();
    log.waitFor("Overload:0. count:2 at data:{ id=7b3f idx=1");
    EXPECT_EQ(processing::count("AisrProcess"), 2U);
}

TEST_F(EngineWorkerTest, WaitsByTheWallClockAndDropsTheQueuedFrameAtTheEnd) {
    service->config.abortMs = 10 * EngineService::kPatientMs;  // The gate does not wait so long.
    ASSERT_TRUE(engine->initialize());
    Gate gate;
    processing::hold("AisrProcess", &gate);
    for (size_t frames = 1; frames <= 2; ++frames) {
        controlled_clock::misreadWallClockOnce(-std::chrono::hours(1));
        offer(kStream);  // Its deadline, some seconds ahead by that clock, lies behind.
        EXPECT_EQ(log.count("expired"), frames);
        processing::waitFor("AisrProcess");
    }
    auto stopped = std::async(std::launch::async, [&] { engine.reset(); });
    log.waitFor("~AisrEngine:#: join");
    EXPECT_FALSE(log.contains("enhance died."));
    gate.open();
    stopped.get();
    EXPECT_TRUE(log.contains("enhance died."));
    EXPECT_EQ(processing::count("AisrProcess"), 1U);
}

TEST_F(EngineWorkerTest, ReportsEveryHundredSecondsOfIdleness) {
#ifdef CONTROLLED_CLOCK_REAL_WAITS
    GTEST_SKIP() << "the thread sanitizer has to see the waits itself";
#endif
    ASSERT_TRUE(engine->initialize());
    engine->onAppStart();
    for (size_t times = 1; times <= 2; ++times) {
        controlled_clock::waitForSleeper();
        controlled_clock::advance(milliseconds(99'999));
        controlled_clock::waitForSleeper();  // Woken before its time, it went back to sleep.
        EXPECT_EQ(log.count("enhance timeout."), times - 1);
        controlled_clock::advance(milliseconds(1));
        log.waitFor("4 DE N AISR operator():#: enhance timeout.", times);
    }
    EXPECT_EQ(offer(kStream), 0U) << "the worker is still alive";
    EXPECT_EQ(processing::count("AisrProcess"), 1U);
}

}  // namespace
