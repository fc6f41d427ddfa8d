// SPDX-License-Identifier: Apache-2.0
// The health monitor, with frames offered at exact rates.
#include <gtest/gtest.h>

#include <locale>

#include "aisr/AisrEngine.h"
#include "support/ControlledClock.h"
#include "support/EngineService.h"
#include "support/LogCapture.h"
#include "support/ProcessingLibrary.h"

using std::chrono::microseconds;
using std::chrono::nanoseconds;

namespace {

constexpr uint64_t kStream = 0x7f3a;
constexpr uint64_t kOther = 0x1234;
constexpr int kFramesPerInterval = 39;

class EngineMonitorTest : public testing::Test {
protected:
    EngineMonitorTest() : service(EngineService::install()) { processing::use("without_nothing"); }

    void start(int maxFps, int tolerance, int restore) {
        service->config.monitorMaxFps = maxFps;
        service->config.monitorTolerance = tolerance;
        service->config.monitorRestore = restore;
        service->config.abortMs = EngineService::kPatientMs;
        ASSERT_TRUE(engine.initialize());
        engine.onAppStart();
    }

    /** Offers a frame after `gap`; whether it reached the processing library. */
    bool offer(uint64_t id, nanoseconds gap) {
        controlled_clock::advance(gap);
        const size_t before = processing::count("AisrProcess");
        Aisr::BufferInfo info = frame.info(id);
        engine.enhance(info);
        return processing::count("AisrProcess") != before;
    }

    /** One interval of a stream at one gap between frames; whether its last frame was accepted. */
    bool interval(uint64_t id, nanoseconds gap, bool expectOthers) {
        for (int i = 1; i < kFramesPerInterval; ++i) {
            EXPECT_EQ(offer(id, gap), expectOthers) << "frame " << i;
        }
        return offer(id, gap);
    }

    LogCapture log;
    processing::Frame frame;
    android::sp<EngineService> service;
    AisrEngine engine;
};

constexpr microseconds kFast{16'666};    // 60 frames per second
constexpr microseconds kNormal{33'333};  // 30 frames per second

/** A locale with a decimal comma. */
class Comma : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
};

TEST_F(EngineMonitorTest, RefusesAFastStreamAndRestoresItWhenItCalmsDown) {
    const std::locale before = std::locale::global(std::locale(std::locale(), new Comma));
    start(38, 2, 3);
    EXPECT_TRUE(interval(kStream, kFast, true));
    EXPECT_EQ(log.last("monitor"),
              "4 DE N AISR isUnhealthy:#: monitor healthy ID:7f3a 32(64)x16 fps:61.5814(max:38) "
              "count:1|0(tol:2|3).");
    EXPECT_TRUE(interval(kStream, kFast, true));
    EXPECT_FALSE(interval(kStream, kFast, true)) << "the third in a row";
    EXPECT_FALSE(interval(kStream, kFast, false));
    EXPECT_EQ(log.count("5 DE N AISR isUnhealthy:#: monitor UNHEALTHY ID:7f3a"), 2U);
    EXPECT_NE(log.last("UNHEALTHY").find(" count:4|0(tol:2|3)!"), std::string::npos);

    for (int normal = 1; normal <= 3; ++normal) {
        EXPECT_FALSE(interval(kStream, kNormal, false));
        EXPECT_NE(log.last("monitor").find("4 DE N AISR isUnhealthy:#: monitor restore:0 ID:7f3a"),
                  std::string::npos);
    }
    EXPECT_TRUE(interval(kStream, kNormal, false)) << "the fourth, on its closing frame";
    EXPECT_NE(log.last("monitor").find("monitor restore:1"), std::string::npos);
    EXPECT_TRUE(interval(kStream, kNormal, true));
    EXPECT_NE(log.last("monitor").find("monitor healthy"), std::string::npos);
    std::locale::global(before);
}

TEST_F(EngineMonitorTest, RestoresAtTheFirstNormalIntervalWhenToldTo) {
    start(38, 0, 0);
    EXPECT_FALSE(interval(kStream, kFast, true));
    EXPECT_TRUE(interval(kStream, kNormal, false));
}

TEST_F(EngineMonitorTest, CountsOnlyConsecutiveIntervalsAndTakesASecondForNormal) {
    start(38, 1, 3);
    // 38 gaps just above 1000 ms, 1000.0 as float
    const nanoseconds exactly{1'000'000'000 / 38 + 1};
    const nanoseconds shorter{exactly - microseconds(1)};
    for (int round = 0; round < 4; ++round) {
        EXPECT_TRUE(interval(kStream, shorter, true));
        EXPECT_NE(log.last("monitor").find(" count:1|0(tol:1|3)."), std::string::npos);
        EXPECT_TRUE(interval(kStream, exactly, true));
        EXPECT_NE(log.last("monitor").find(" fps:39(max:38) count:0|1(tol:1|3)."),
                  std::string::npos);
    }
    EXPECT_EQ(log.count("UNHEALTHY"), 0U);
}

TEST_F(EngineMonitorTest, LiftsTheVerdictWhenAnIntervalClosesOnAnotherStream) {
    start(38, 0, -1);
    EXPECT_FALSE(interval(kStream, kFast, true));
    EXPECT_FALSE(interval(kStream, kNormal, false));
    EXPECT_NE(log.last("monitor").find(
                  "4 DE N AISR isUnhealthy:#: monitor UNHEALTHY:1(Not allow restore) ID:7f3a"),
              std::string::npos);
    EXPECT_TRUE(interval(kOther, kNormal, false)) << "refused until the close, accepted on it";
    EXPECT_NE(log.last("monitor").find("monitor healthy ID:1234"), std::string::npos);

    // The combined rate of two streams counts, and the verdict goes to the closing frame's stream.
    for (int i = 1; i < kFramesPerInterval; ++i) {
        EXPECT_TRUE(offer(i % 2 == 0 ? kStream : kOther, kFast));
    }
    EXPECT_FALSE(offer(kStream, kFast));
    EXPECT_NE(log.last("UNHEALTHY").find("ID:7f3a"), std::string::npos);
    EXPECT_FALSE(interval(kOther, kFast, false));
    EXPECT_NE(log.last("UNHEALTHY").find("ID:1234"), std::string::npos);
    EXPECT_TRUE(interval(kStream, kNormal, false)) << "it is the other one that is unhealthy now";
}

}  // namespace
