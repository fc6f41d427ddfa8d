// SPDX-License-Identifier: Apache-2.0
// What goes wrong while the engine comes up, one fault at a time: the promised messages, no
// registration left behind, and everything but enhancement works.
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>

#include "aisr/AisrEngine.h"
#include "client/DisplayEngineManager.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/EngineService.h"
#include "support/FaultInjection.h"
#include "support/LogCapture.h"
#include "support/ProcessingLibrary.h"

using android::sp;
using android::binder::Status;

namespace {

/** Held on to until the fault is over. */
std::optional<fault::FullDescriptorTable> gFullTable;

/** A fault that leaves the process without an engine: what is logged, and what is called. */
struct Fault {
    const char* name;
    void (*begin)(EngineService&);
    std::string complaints;
    size_t calls; /**< How many of the engine's calls the service gets. */

    friend void PrintTo(const Fault& it, std::ostream* text) { *text << it.name; }
};

const std::string kEngine = "6 DE N AISR ";
const std::string kFacade = "5 DE N VideoEngine ";
const std::string kNotSupported = kFacade + "isAisrValid:#: AisrProcessor is NOT supported!\n";
const std::string kFailed = kFacade + "isAisrValid:#: AisrEngine initialize() failed!\n";
const std::string kNoCallback = kEngine + "registerCallback:#: new ClientCallback() failed!\n";
const Status kLost = Status::fromStatusT(android::DEAD_OBJECT);
const Status kRefusal = Status::fromExceptionCode(Status::EX_SECURITY);

const Fault kFaults[] = {
    {"AnswerTwo", [](auto& it) { it.support = 2; }, kNotSupported, 1},
    {"NoAnswer", [](auto& it) { it.outcomes["getSupported"] = kLost; },
     kFacade + "isAisrProcessorSupported:#: getSupported(DE_FEATURE_AISR, &support) failed!\n" +
         kNotSupported,
     1},
    {"NoDescriptor", [](auto&) { gFullTable.emplace(); },
     "5 DE N AISR updateAppName:#: Failed to open /proc/PID/cmdline! Too many open files\n" +
         kFailed +
         "5 DE N AISRAlgo openLibrary:#: Can't open library 'libAISRProcess_interface.so' - "
         "libAISRProcess_interface.so: cannot open shared object file: Too many open files\n",
     1},
    {"NoName", [](auto&) { fault::setReadError(EIO); },
     "5 DE N AISR updateAppName:#: Failed to read /proc/PID/cmdline! Input/output error\n" +
         kFailed,
     1},
    {"NoConfig", [](auto& it) { it.outcomes["getEffectExByData"] = kRefusal; },
     kEngine +
         "getConfig:#: Failed to getEffectEx(DE_FEATURE_AISR, "
         "data:{DE_EFFECT_TYPE_CONFIG,NAME},&status(size=13),&ret)\n" +
         kFailed,
     2},
    {"NoCallback", [](auto&) { fault::setFailingAllocation(1); }, kNoCallback + kFailed, 2},
    {"Lost", [](auto& it) { it.outcomes["registerCallbackEx"] = kLost; },
     kEngine +
         "registerCallback:#: registerCallbackEx(callback, data:{ key:NAME feature:44 }) "
         "failed!\n" +
         kFailed,
     3},
    {"Refused", [](auto& it) { it.registerResult = false; }, kFailed, 3},
};

class FaultBringUpTest : public testing::TestWithParam<Fault> {
protected:
    FaultBringUpTest() : manager(new DisplayEngineManager) {
        processing::use("without_nothing");
        g_delogdEnable = g_delogiEnable = true;  // The manager has switched them off.
    }

    /** Every video method, in a client's order; none may have an effect without an engine. */
    void expectNothing() {
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
    }

    LogCapture log;
    processing::Frame frame;
    sp<DisplayEngineManager> manager;
};

TEST_P(FaultBringUpTest, IsFinalAndLeavesNoRegistration) {
#ifdef FAULT_REAL_ALLOCATIONS
    if (GetParam().name == std::string("NoDescriptor") ||
        GetParam().name == std::string("NoCallback")) {
        GTEST_SKIP() << "the sanitizer's runtime has its own allocator and needs descriptors";
    }
#endif
    const sp<EngineService> service = EngineService::install();
    const std::string before = fault::holdings();
    GetParam().begin(*service);
    expectNothing();
    gFullTable.reset();
    fault::setReadError(0);
    fault::setFailingAllocation(0);
    EXPECT_EQ(fault::takeComplaints(&log), GetParam().complaints);
    EXPECT_TRUE(fault::returnsTo(before)) << fault::holdings() << " after " << before;
    const EngineService::Callback held = service->callback();
    EXPECT_TRUE(held == nullptr || held->getStrongCount() == 2) << "the service's and this one";
    expectNothing();
    EXPECT_EQ(fault::takeComplaints(&log), "") << "the outcome holds for the process";
    EXPECT_EQ(service->journal.lines().size(), GetParam().calls);
    service->outcomes.clear();
    EXPECT_EQ(manager->getReadingSupport(), service->support) << "it works all the same";
}

INSTANTIATE_TEST_SUITE_P(All, FaultBringUpTest, testing::ValuesIn(kFaults),
                         [](const auto& fault) { return std::string(fault.param.name); });

}  // namespace
