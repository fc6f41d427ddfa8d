// SPDX-License-Identifier: Apache-2.0
// What goes wrong while the engine comes up, and with the processing library and its worker, one
// fault at a time: the promised messages, and nothing left behind.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "aisr/AisrEngine.h"
#include "support/EngineService.h"
#include "support/FaultInjection.h"
#include "support/LogCapture.h"
#include "support/ProcessingLibrary.h"

using android::sp;
using android::binder::Status;
using processing::Call;

namespace {

const std::string kPath = "/system/lib64/libAISRProcess_interface.so";
const std::string kAdapter = "5 DE N AISRAlgo ";
const std::string kEngine = "5 DE N AISR ";
const std::string kNotReady = kEngine + "getReady:#: mAlgorithm.init() failed!\n";
const std::string kFailed =
    kEngine + "doEnhance:#: mAlgorithm.enhance(data:{ id=1 idx=# 32(64)x16 }) failed! Used #ms\n";
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
    {"no deinit", kStart, failing("AisrDeinit", 3),
     kAdapter + "deinit:#: mDeinitFunc failed, return AISR_ERR_TIMEOUT(3)\n" + kEngine +
         "onAppStop:#: mAlgorithm.deinit() failed!\n",
     0, kStop},
};

// The frame that meets the fault passes, and the next is enhanced.
TEST(FaultEngineTest, LosesOneFrameAndNothingElse) {
    const sp<EngineService> service = EngineService::install();
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
        ASSERT_FALSE(HasFailure());  // The other rows would only wait.
    }
}

std::atomic<int> gReadError{0};                           // Unless 0, what read() fails with.
[[maybe_unused]] thread_local bool tHasNoMemory = false;  // Where it may be told by null.

/** A fault that keeps the engine from coming up. */
struct BringUpFault {
    const char* name;
    void (*begin)(EngineService&);
    std::string complaints;
    size_t calls; /**< How many of the engine's calls the service gets. */
};

const BringUpFault kBringUpFaults[] = {
    {"no name", [](auto&) { gReadError = EIO; },
     kEngine + "updateAppName:#: Failed to read /proc/PID/cmdline! Input/output error\n", 0},
#ifndef FAULT_REAL_ALLOCATIONS
    // Not under a sanitizer, whose runtime has an allocator of its own and needs descriptors.
    {"no descriptor", [](auto&) { fault::setFullDescriptorTable(true); },
     kEngine + "updateAppName:#: Failed to open /proc/PID/cmdline! Too many open files\n" +
         kAdapter +
         "openLibrary:#: Can't open library 'libAISRProcess_interface.so' - "
         "libAISRProcess_interface.so: cannot open shared object file: Too many open files\n",
     0},
    {"no callback", [](auto&) { tHasNoMemory = true; },
     "6 DE N AISR registerCallback:#: new ClientCallback() failed!\n", 1},
#endif
    {"no configuration",
     [](auto& it) {
         it.outcomes["getEffectExByData"] = Status::fromExceptionCode(Status::EX_SECURITY);
     },
     "6 DE N AISR getConfig:#: Failed to getEffectEx(DE_FEATURE_AISR, "
     "data:{DE_EFFECT_TYPE_CONFIG,NAME},&status(size=13),&ret)\n",
     1},
    {"lost",
     [](auto& it) {
         it.outcomes["registerCallbackEx"] = Status::fromStatusT(android::DEAD_OBJECT);
     },
     "6 DE N AISR registerCallback:#: registerCallbackEx(callback, data:{ key:NAME feature:44 }) "
     "failed!\n",
     2},
    {"refused", [](auto& it) { it.registerResult = false; }, "", 2},
};

TEST(FaultEngineTest, ComesUpWhollyOrNotAtAll) {
    processing::use("without_nothing");
    for (const BringUpFault& fault : kBringUpFaults) {
        SCOPED_TRACE(fault.name);
        const sp<EngineService> service = EngineService::install();
        LogCapture log;
        const std::string before = fault::holdings();
        fault.begin(*service);
        {
            AisrEngine engine;
            EXPECT_FALSE(engine.initialize());
        }
        fault::setFullDescriptorTable(false);
        gReadError = 0;
        tHasNoMemory = false;
        EXPECT_EQ(fault::takeComplaints(&log), fault.complaints);
        fault::expectReturnTo(before);
        EXPECT_EQ(service->journal.lines().size(), fault.calls);
        const EngineService::Callback held = service->callback();
        EXPECT_TRUE(held == nullptr || held->getStrongCount() == 2) << "the service's and this one";
        EXPECT_TRUE(processing::calls().empty());
    }
}

}  // namespace

// Stand before functions of the C library and the C++ runtime, also for the libraries used here. A
// sanitizer's runtime stands before read() as well; it has to see the calls.
extern "C" __attribute__((weak)) ssize_t __interceptor_read(int, void*, size_t);

extern "C" ssize_t read(int file, void* bytes, size_t size) {
    using Read = decltype(&__interceptor_read);
    Read const real = __interceptor_read != nullptr
                          ? __interceptor_read
                          : reinterpret_cast<Read>(dlsym(RTLD_NEXT, "read"));
    errno = gReadError;
    return gReadError != 0 ? -1 : real(file, bytes, size);
}

#ifndef FAULT_REAL_ALLOCATIONS
// The memory is freed by the runtime's own operator, which calls free().
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return tHasNoMemory ? nullptr : std::malloc(size);
}
#endif
