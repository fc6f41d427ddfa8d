// SPDX-License-Identifier: Apache-2.0
// The video facade: how the engine comes up once, or never, and how events reach it. Each test
// needs a process of its own, as the test runner gives it, because the outcome holds for the
// process.
#include <binder/PersistableBundle.h>
#include <gtest/gtest.h>
#include <utils/String16.h>

#include <future>

#include "client/DisplayEngineManager.h"
#include "client/VideoEngine.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/EngineService.h"
#include "support/FaultInjection.h"
#include "support/LogCapture.h"
#include "support/ProcessingLibrary.h"
#include "support/ThreadState.h"

using android::sp;
using android::String16;
using android::os::PersistableBundle;
using Texts = std::vector<std::string>;

namespace {

class FacadeTest : public testing::Test {
protected:
    FacadeTest() : manager(new DisplayEngineManager) {
        processing::use("without_nothing");
        g_delogdEnable = g_delogiEnable = true;  // The manager has switched them off.
    }

    void race(int32_t secondAnswer);
    void expectNoEngine(EngineService& service, const std::string& complaints);

    LogCapture log;
    processing::Frame frame;
    sp<DisplayEngineManager> manager;
};

TEST_F(FacadeTest, BringsTheEngineUpAndEnhances) {
    const sp<EngineService> service = EngineService::install();
    service->config.abortMs = EngineService::kPatientMs;
    EXPECT_TRUE(manager->isVideoEngineSupported());
    const std::string start = "4 DE N AISR updateAppName:#: ";
    const std::string name = log.last(start).substr(start.size());
    EXPECT_NE(name.find("FacadeTest"), std::string::npos);
    EXPECT_EQ(name.find("--gtest"), std::string::npos) << "the arguments are no part of the name";
    EXPECT_EQ(service->journal.take(),
              (Texts{"getSupported 44", "getEffectExByData 44 Key=" + name + " Type=26 [13]",
                     "registerCallbackEx Key=" + name + " Feature=44"}));
    EXPECT_TRUE(
        log.contains("4 DE N AISR registerCallback:#: key:" + name + " feature:44 success."));
    EXPECT_EQ(log.last("DE N VideoEngine"),
              "4 DE N VideoEngine isAisrValid:#: Load AISR successfully.");

    EXPECT_TRUE(manager->getVideoAppConfig());
    manager->onVideoAppStart();
    manager->onVideoStart();
    manager->setVideoRect(1280, 720);
    EXPECT_FALSE(manager->needVideoEnhance());
    manager->setVideoFrameRate(25);
    EXPECT_TRUE(manager->needVideoEnhance());
    Aisr::BufferInfo info = frame.info(1);
    manager->doVideoEnhance(info);
    manager->doVideoEnhance(info);
    EXPECT_EQ(info.idx, 1U);
    processing::waitFor("AisrProcess", 2);
    manager->setAisrEnable(false);
    EXPECT_FALSE(manager->needVideoEnhance());
    EXPECT_FALSE(manager->getVideoAppConfig());
    manager->onVideoStop();
    manager->onVideoAppStop();
    EXPECT_EQ(processing::calls().back().text(), "AisrDeinit");
    EXPECT_EQ(service->journal.take(), Texts{}) << "frames and reports do not trouble the service";
}

// Two first callers at once: the service is asked for both, and its second answer counts.
void FacadeTest::race(int32_t secondAnswer) {
    const sp<EngineService> service = EngineService::install();
    processing::Gate gate;
    std::promise<void> isAsked;
    service->whenAsked = [&, queries = 0]() mutable {
        if (++queries == 1) {
            isAsked.set_value();
            gate.pass();
        } else {
            service->support = secondAnswer;
        }
    };
    auto first = std::async(std::launch::async, [&] { return manager->isVideoEngineSupported(); });
    isAsked.get_future().get();
    auto second = startAndWaitUntilAsleep([&] { return manager->isVideoEngineSupported(); });
    gate.open();
    EXPECT_TRUE(first.get());
    EXPECT_EQ(second.get(), secondAnswer == 1);
    EXPECT_EQ(service->journal.count("getSupported"), 2U);
    EXPECT_EQ(service->journal.count("registerCallbackEx"), 1U);
    EXPECT_EQ(log.count("Start to load AISR......"), 1U);
    EXPECT_EQ(manager->getVideoAppConfig(), secondAnswer == 1);
    EXPECT_FALSE(log.contains("~AisrEngine")) << "the engine stays until the process exits";
}

TEST_F(FacadeTest, CreatesOneEngineForTwoFirstCallers) {
    race(1);
}

TEST_F(FacadeTest, TakesTheLastAnswerForGood) {
    race(0);
}

// Every video method, in a client's order, has no effect, also when all would be well again.
void FacadeTest::expectNoEngine(EngineService& service, const std::string& complaints) {
    for (const std::string& expected : {complaints, std::string()}) {
        Aisr::BufferInfo info = frame.info(1);
        info.idx = 77;
        EXPECT_FALSE(manager->isVideoEngineSupported());
        manager->onVideoAppStart();
        manager->onVideoStart();
        manager->setVideoRect(1280, 720);
        manager->setVideoFrameRate(30);
        manager->setAisrEnable(true);
        EXPECT_FALSE(manager->needVideoEnhance());
        EXPECT_FALSE(manager->getVideoAppConfig());
        manager->doVideoEnhance(info);
        manager->onVideoStop();
        manager->onVideoAppStop();
        EXPECT_EQ(info.idx, 77U);
        EXPECT_TRUE(processing::calls().empty());
        EXPECT_EQ(fault::takeComplaints(&log), expected);
        service.support = 1;
        service.registerResult = true;
        service.outcomes.clear();
    }
    EXPECT_EQ(service.journal.count("getSupported"), 1U);
    EXPECT_EQ(manager->getReadingSupport(), 1) << "everything but enhancement works";
}

const std::string kNotSupported =
    "5 DE N VideoEngine isAisrValid:#: AisrProcessor is NOT supported!\n";

TEST_F(FacadeTest, IsWithoutAnEngineWhenTheAnswerIsTwo) {
    const sp<EngineService> service = EngineService::install();
    service->support = 2;
    expectNoEngine(*service, kNotSupported);
}

TEST_F(FacadeTest, IsWithoutAnEngineWhenNoAnswerComes) {
    const sp<EngineService> service = EngineService::install();
    service->outcomes["getSupported"] = EngineService::Status::fromStatusT(android::DEAD_OBJECT);
    expectNoEngine(*service,
                   "5 DE N VideoEngine isAisrProcessorSupported:#: "
                   "getSupported(DE_FEATURE_AISR, &support) failed!\n" +
                       kNotSupported);
}

TEST_F(FacadeTest, IsWithoutAnEngineWhenItIsRefused) {
    const sp<EngineService> service = EngineService::install();
    service->registerResult = false;
    expectNoEngine(*service, "5 DE N VideoEngine isAisrValid:#: AisrEngine initialize() failed!\n");
}

TEST_F(FacadeTest, ObeysItsEventsAndNoOthers) {
    const sp<EngineService> service = EngineService::install();
    const PersistableBundle off = protocol::enable(false);
    const PersistableBundle on = protocol::enable(true);
    std::future<void> event;
    service->whenRegistered = [&](const EngineService::Callback& callback) {
        event = startAndWaitUntilAsleep(
            [callback, &off] { EXPECT_TRUE(callback->onEventWithData(3, off).isOk()); });
    };
    EXPECT_TRUE(manager->isVideoEngineSupported());
    event.get();
    EXPECT_FALSE(manager->getVideoAppConfig()) << "it waited while the engine was registering";
    const EngineService::Callback callback = service->callback();
    PersistableBundle number;
    number.putInt(String16("Enable"), 0);
    const std::string tag = "DE N AISR onEventWithData:#: ";
    const std::string wrongType = "(expeted IDisplayEngineService::DE_EVENT_AISR:3)!";
    const std::string noEnable = "5 " + tag + "Invalid input: no \"Enable\" found in data!";
    const struct {
        int event;
        const PersistableBundle& data;
        std::string first;
        std::string last;
        bool isEnabled;
    } events[] = {
        {3, on, "4 " + tag + "Enable:1", "Because mIsEnable:1", true},
        {2, off, "5 " + tag + "Invalid input: event:2" + wrongType, wrongType, true},
        {4, off, "5 " + tag + "Invalid input: event:4" + wrongType, wrongType, true},
        {3, number, noEnable, noEnable, true},
        {3, PersistableBundle(), noEnable, noEnable, true},
        {3, on, "4 " + tag + "Enable:1", "setEnableInternal:#: Same enable:1 for ", true},
        {3, off, "4 " + tag + "Enable:0", "Because mIsEnable:0", false},
    };
    for (const auto& expected : events) {
        log.take();
        EXPECT_TRUE(callback->onEventWithData(expected.event, expected.data).isOk());
        EXPECT_TRUE(callback->onEvent(3, 0).isOk());
        EXPECT_EQ(log.lines().front(), expected.first);
        EXPECT_NE(log.lines().back().find(expected.last), std::string::npos);
        EXPECT_EQ(manager->getVideoAppConfig(), expected.isEnabled);
    }
}

}  // namespace
