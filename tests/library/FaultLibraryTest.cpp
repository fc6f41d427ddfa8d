// SPDX-License-Identifier: Apache-2.0
// What goes wrong with the processing library and its worker, one fault at a time: the frame that
// meets it passes with the promised messages, nothing is left behind, and the next is enhanced.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "aisr/AisrEngine.h"
#include "support/ControlledClock.h"
#include "support/EngineService.h"
#include "support/FaultInjection.h"
#include "support/LogCapture.h"
#include "support/ProcessingLibrary.h"

using processing::Call;

namespace {

const std::string kPath = "/system/lib64/libAISRProcess_interface.so";
const std::string kAdapter = "5 DE N AISRAlgo ";
const std::string kEngine = "5 DE N AISR ";
const std::string kFrame = "(data:{ id=1 idx=# 32(64)x16 }) ";
const std::string kNotReady = kEngine + "getReady:#: mAlgorithm.init() failed!\n";
const std::string kFailed =
    kEngine + "doEnhance:#: mAlgorithm.enhance" + kFrame + "failed! Used #ms\n";
const std::string kNoInit = kAdapter + "init:#: mInitFunc failed, return AISR_ERR_FATAL(1)\n";
const std::string kSetParam = kAdapter + "setParam:#: mSetParamFunc(&mContext,";

using Action = void (*)(AisrEngine&);

const Action kNothing = [](AisrEngine&) {};
const Action kStart = [](AisrEngine& it) { it.onAppStart(); };
const Action kStop = [](AisrEngine& it) { it.onAppStop(); };
const Action kRestart = [](AisrEngine& it) {
    it.onAppStart();
    it.onAppStop();
};
const Action kOffer = [](AisrEngine& it) {
    static processing::Frame frame;
    Aisr::BufferInfo info = frame.info(1);
    it.enhance(info);
};

/** A fault of the library, which lasts until another build or hook is used. */
struct Fault {
    std::string name;
    Action prepare;
    std::function<void()> begin;
    std::string complaints;
    size_t processed = 0; /**< How often the process entry is called all the same. */
    Action act = kOffer;
};

/** An entry that answers `status`. */
std::function<void()> failing(const std::string& text, int32_t status) {
    return [=] {
        processing::setHook([=](const Call& call) { return call.text() == text ? status : 0; });
    };
}

Fault without(const std::string& entry, const std::string& name) {
    return {"no " + entry, kNothing, [name] { processing::use(name); },
            kAdapter + "loadLibrary:#: Failed to locate " + entry + " in '" + kPath + "' - ROOT" +
                kPath + ": undefined symbol: " + entry + "\n" + kNotReady};
}

/** The frame is given up at once, and lasts until its cancel, which is refused. */
void refuseCancel() {
    controlled_clock::misreadWallClockOnce(-std::chrono::hours(1));
    const auto cancelled = std::make_shared<processing::Gate>();
    processing::setHook([cancelled](const Call& call) {
        if (call.tag == AISR_TAG_SET_TIMEOUT) {
            cancelled->open();
            return AISR_ERR_TIMEOUT;
        }
        if (call.entry == "AisrProcess") {
            cancelled->pass();
        }
        return AISR_SUCCESS;
    });
}

void throwInProcess() {
    processing::setHook([](const Call& call) {
        if (call.entry == "AisrProcess") {
            throw 7;
        }
        return AISR_SUCCESS;
    });
}

const Fault kFaults[] = {
    without("AisrInit", "without_init"),
    without("AisrDeinit", "without_deinit"),
    without("AisrProcess", "without_process"),
    without("AisrDoClean", "without_doclean"),
    without("AisrGetParam", "without_getparam"),
    without("AisrSetParam", "without_setparam"),
    {"log level refused", kNothing, failing("AisrSetParam(4)", 9),
     kSetParam + "Unknown tag code: 4,&bufInfo,4) failed, return Unknown error code: 9\n"
                 "4 DE N AISRAlgo init:#: setParam(AISR_TAG_SET_LOG_LEVEL,1) return 0\n",
     1},
    {"no init", kNothing, failing("AisrInit", 1), kNoInit + kNotReady},
    {"no init again", kRestart, failing("AisrInit", 1),
     kNoInit + kAdapter + "enhance:#: Retry init() failed!\n" + kFailed},
    {"no thread", kNothing, [] { fault::setNoThreads(true); },
     kEngine + "getReady:#: Failed to start the worker!\n"},
    {"frame refused", kStart, failing("AisrSetParam(2)", 2),
     kSetParam + "AISR_TAG_SET_BUF(2),&bufInfo,24) failed, return AISR_ERR_BUF_COPY(2)\n" +
         kFailed},
    {"no process", kStart, failing("AisrProcess", -1),
     kAdapter + "enhance:#: mProcessFunc failed, return Unknown error code: -1\n" + kFailed, 1},
    {"exception", kStart, throwInProcess, kFailed, 1},
    {"cancel refused", kStart, refuseCancel,
     kEngine + "enhance:#: doEnhance" + kFrame + "expired #(10000)ms timeout!\n" + kSetParam +
         "AISR_TAG_SET_TIMEOUT(3),&bufInfo,48) failed, return AISR_ERR_TIMEOUT(3)\n"
         "4 DE N AISRAlgo cancel:#: data:{ id=1 idx=# y=0x# uv=0x# 32(64)x16 } -- failed!\n",
     1},
    {"no deinit", kStart, failing("AisrDeinit", 3),
     kAdapter + "deinit:#: mDeinitFunc failed, return AISR_ERR_TIMEOUT(3)\n" + kEngine +
         "onAppStop:#: mAlgorithm.deinit() failed!\n",
     0, kStop},
};

TEST(FaultLibraryTest, LosesOneFrameAndNothingElse) {
    const android::sp<EngineService> service = EngineService::install();
    for (const Fault& fault : kFaults) {
        SCOPED_TRACE(fault.name);
        processing::use("without_nothing");
        service->config.abortMs = EngineService::kPatientMs;
        LogCapture log;
        const std::string before = fault::holdings();
        {
            AisrEngine engine;
            ASSERT_TRUE(engine.initialize());
            fault.prepare(engine);
            processing::takeTexts();
            fault.begin();
            fault.act(engine);
            processing::waitFor("AisrProcess", fault.processed);
            EXPECT_EQ(processing::count("AisrProcess"), fault.processed);
            EXPECT_EQ(fault::takeComplaints(&log), fault.complaints);
            fault::setNoThreads(false);
            if (fault.name == "no deinit") {
                processing::endSession();  // The adapter has given it up.
            }
            processing::use("without_nothing");
            kOffer(engine);
            processing::waitFor("AisrProcess");
        }
        EXPECT_EQ(fault::takeComplaints(&log), "");
        fault::expectReturnTo(before);
    }
}

}  // namespace
