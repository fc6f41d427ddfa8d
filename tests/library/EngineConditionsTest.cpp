// SPDX-License-Identifier: Apache-2.0
// When enhancement is wanted: the configuration, the three conditions, and their account in the
// log.
#include <gtest/gtest.h>

#include <optional>

#include "aisr/AisrEngine.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/EngineService.h"
#include "support/LogCapture.h"
#include "support/ProcessingLibrary.h"

namespace {

using Config = EngineService::Config;

class EngineConditionsTest : public testing::Test {
protected:
    EngineConditionsTest() : service(EngineService::install()) {
        processing::use("");
        engine.emplace();
    }

    LogCapture log;
    android::sp<EngineService> service;
    std::optional<AisrEngine> engine;
};

TEST_F(EngineConditionsTest, TakesOrRefusesAConfiguration) {
    const std::string summary = "4 DE N AISR getConfig:#: enable:";
    const std::string invalid = "6 DE N AISR getConfig:#: Invalid input: ";
    const struct {
        const char* name;
        void (*change)(Config&); /**< from the usual one */
        std::string message;
        bool isAccepted;
        bool isEnabled;
    } cases[] = {
        {"as it is", [](auto& it) { it = {1, 10, 20, 30, 40, 31, 42, 2, 3, 50, 40, 6, 9000}; },
         summary + "1 rect:{ min:10x20 max:30x40 } maxFps:31 monitor:{ maxFps:42 tolerance:2 "
                   "restore:3 } timeout:{ abort:50ms overload:40ms tolerance:6/9000ms }",
         true, true},
        {"everything derived", [](auto& it) { it = {2, 0, 0, 1, 1, 60, 60, -1, -7, 40, 1, 1, 1}; },
         summary + "0 rect:{ min:0x0 max:1x1 } maxFps:60 monitor:{ maxFps:70 tolerance:1 "
                   "restore:-7 } timeout:{ abort:17ms overload:16ms tolerance:5/10000ms }",
         true, false},
        {"at the edges", [](auto& it) { it = {0, 1, 1, 2, 2, 2, 3, 0, 0, 2, 2, 2, 2}; },
         summary + "0 rect:{ min:1x1 max:2x2 } maxFps:2 monitor:{ maxFps:3 tolerance:0 restore:0 } "
                   "timeout:{ abort:2ms overload:2ms tolerance:2/2ms }",
         true, false},
        {"overload above abort", [](auto& it) { it.overloadMs = it.abortMs + 1; },
         "timeout:{ abort:34ms overload:33ms tolerance:5/10000ms }", true, true},
        {"the largest rate",
         [](auto& it) { it = {1, 1, 1, 2, 2, INT32_MAX, INT32_MAX, 0, 0, 0, 0, 0, 0}; },
         "maxFps:2147483647 monitor:{ maxFps:2147483647 tolerance:0 restore:0 } timeout:{ "
         "abort:1ms overload:0ms tolerance:5/10000ms }",
         true, true},
        {"width range empty", [](auto& it) { it.minWidth = it.maxWidth; },
         invalid + "rect:{ min:720x512 max:720x1280 } maxFps:30", false, false},
        {"height range empty", [](auto& it) { it.minHeight = 1280; }, invalid, false, false},
        {"negative width", [](auto& it) { it.minWidth = -1; }, invalid, false, false},
        {"negative height", [](auto& it) { it.minHeight = -1; }, invalid, false, false},
        {"too low a rate", [](auto& it) { it.maxFps = 1; }, "} maxFps:1", false, false},
        {"too short", [](auto& it) { it.size = 12; }, invalid + "status(size=12)", false, false},
        {"nothing", [](auto& it) { it.size = 0; }, invalid + "status(size=0)", false, false},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        service->config = {};
        expected.change(service->config);
        service->journal.take();
        log.take();
        AisrEngine fresh;
        EXPECT_EQ(fresh.initialize(), expected.isAccepted);
        EXPECT_EQ(fresh.getAppConfig(), expected.isEnabled);
        EXPECT_TRUE(log.contains(expected.message)) << log.last("getConfig:#: ");
        EXPECT_EQ(service->journal.count("registerCallbackEx"), expected.isAccepted ? 1U : 0U);
    }
}

TEST_F(EngineConditionsTest, AcceptsSizesWithinTheRangeInEitherOrientation) {
    struct Size {
        int width;
        int height;
    };
    struct Range {
        Size min;
        Size max;
    };
    const Range usual{{512, 512}, {720, 1280}};
    const Range mixed{{512, 600}, {1280, 720}};
    const Range flat{{10, 30}, {720, 1280}};
    const Range wide{{1, 1}, {INT32_MAX, INT32_MAX}};
    const struct {
        Range range;
        Size size;
        bool isAccepted;
    } cases[] = {
        {usual, {513, 513}, true},    {usual, {512, 1280}, false}, {usual, {1280, 512}, false},
        {usual, {600, 1281}, false},  {usual, {720, 1280}, true},  {usual, {1280, 720}, true},
        {usual, {721, 1280}, false},  {usual, {960, 540}, true},   {usual, {854, 480}, false},
        {usual, {1920, 1080}, false}, {usual, {960, 960}, true},   {usual, {961, 960}, false},
        {mixed, {700, 601}, true},    {mixed, {512, 800}, false},  {mixed, {513, 599}, true},
        {mixed, {513, 598}, false},   {flat, {15, 20}, false},     {flat, {15, 21}, true},
        {wide, {65536, 65536}, true}, {wide, {1, 1}, false},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(std::to_string(expected.size.width) + "x" +
                     std::to_string(expected.size.height));
        service->config = {};
        service->config.minWidth = expected.range.min.width;
        service->config.minHeight = expected.range.min.height;
        service->config.maxWidth = expected.range.max.width;
        service->config.maxHeight = expected.range.max.height;
        AisrEngine fresh;
        ASSERT_TRUE(fresh.initialize());
        fresh.setFrameRate(1);
        EXPECT_FALSE(fresh.needEnhance());
        fresh.setRect(expected.size.width, expected.size.height);
        EXPECT_EQ(fresh.needEnhance(), expected.isAccepted);
    }
}

TEST_F(EngineConditionsTest, CountsVerdictsAndTellsWhy) {
    g_delogvEnable = true;
    ASSERT_TRUE(engine->initialize());
    const std::string update = "4 DE N AISR updateEnhance:#: mIsEnhance[EN_COND_";
    const struct {
        void (*report)(AisrEngine&);
        std::string line; /**< the last one logged; "#" stands for the process's name */
        bool isWanted;    /**< enhancement, afterwards */
    } steps[] = {
        {[](auto& it) { it.setRect(0, 720); }, "5 DE N AISR setRect:#: Invalid input:0x720 for #!",
         false},
        {[](auto& it) { it.setRect(1280, -1); },
         "5 DE N AISR setRect:#: Invalid input:1280x-1 for #!", false},
        {[](auto& it) { it.setRect(1280, 720); },
         update + "RECT]:1 mEnhanceCount:2 for #. Because rect:1280x720(min:512x512 max:720x1280)",
         false},
        {[](auto& it) { it.setFrameRate(31); },
         update + "FPS]:0 mEnhanceCount:2 for #. Because mFps:31(mMaxFps:30)", false},
        {[](auto& it) { it.setFrameRate(30); },
         update + "FPS]:1 mEnhanceCount:3 for #. Because mFps:30(mMaxFps:30)", true},
        {[](auto& it) { it.setFrameRate(30); },
         "4 DE N AISR LOGV setFrameRate:#: Same fps:30 for #, skip.", true},
        {[](auto& it) { it.setFrameRate(0); },
         "5 DE N AISR setFrameRate:#: Invalid input fps:0 for #!", true},
        {[](auto& it) { it.setRect(1280, 720); },
         "4 DE N AISR LOGV setRect:#: Same rect:1280x720 for #, skip.", true},
        {[](auto& it) { it.setRect(720, 1280); },
         update + "RECT]:1 mEnhanceCount:3 for #. Because rect:720x1280(min:512x512 max:720x1280)",
         true},
        {[](auto& it) { it.setEnable(false); },
         update + "ENABLE]:0 mEnhanceCount:2 for #. Because mIsEnable:0", false},
        {[](auto& it) { it.onAppStop(); }, "5 DE N AISR onAppStop:#: mAlgorithm.deinit() failed!",
         false},
    };
    const std::string start = "4 DE N AISR updateAppName:#: ";
    const std::string name = log.last(start).substr(start.size());
    for (const auto& step : steps) {
        SCOPED_TRACE(step.line);
        log.take();
        step.report(*engine);
        std::string line = log.last("");
        const size_t place = line.find(name);
        if (place != std::string::npos) {
            line.replace(place, name.size(), "#");
        }
        EXPECT_EQ(line, step.line);
        EXPECT_EQ(engine->needEnhance(), step.isWanted);
    }
}

TEST_F(EngineConditionsTest, AreFetchedOnceAndEndThoughTheWithdrawalFails) {
    engine->setEnable(true);
    engine->setRect(1280, 720);
    engine->setRect(-1, -1);
    engine->setFrameRate(30);
    EXPECT_FALSE(engine->needEnhance());
    EXPECT_FALSE(engine->getAppConfig());
    EXPECT_TRUE(log.lines().empty()) << "reports before the initialisation have no effect";
    ASSERT_TRUE(engine->initialize());
    EXPECT_TRUE(engine->getAppConfig());
    engine->setRect(1280, 720);
    engine->setFrameRate(30);
    EXPECT_TRUE(engine->needEnhance()) << "nothing had been stored";
    service->journal.take();
    EXPECT_TRUE(engine->initialize()) << "once and for all";
    EXPECT_TRUE(service->journal.take().empty());
    service->outcomes["unregisterCallbackEx"] = EngineService::Status::fromExceptionCode(-1);
    engine.reset();
    EXPECT_EQ(service->journal.count("unregisterCallbackEx"), 1U);
    EXPECT_NE(log.last("unregisterCallbackEx(data:{ key:").find(" feature:44 }) failed!"),
              std::string::npos);
}

}  // namespace
