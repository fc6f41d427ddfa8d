// SPDX-License-Identifier: Apache-2.0
// What goes wrong while the engine comes up, one fault at a time: the promised messages, no
// registration left behind, and everything but enhancement works.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <optional>

#include "aisr/AisrEngine.h"
#include "client/DisplayEngineManager.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/ChildProcess.h"
#include "support/EngineService.h"
#include "support/FaultInjection.h"
#include "support/LogCapture.h"
#include "support/ProcessingLibrary.h"
#include "support/TestMain.h"

using android::sp;
using android::binder::Status;
using Texts = std::vector<std::string>;

namespace {

constexpr char kServiceArgument[] = "--service";

std::atomic<int> gReadError{0};                           // Unless 0, what read() fails with.
[[maybe_unused]] thread_local bool tHasNoMemory = false;  // Where it may be told by null.

/** Supports enhancement, and is gone for those who look it up again. */
class LeavingService : public EngineService {
protected:
    Status respond(const std::string& call, const protocol::Answer& to) override {
        const std::string directory = getenv("DISPLAYENGINE_RUNTIME_DIR");
        std::filesystem::remove(directory + "/DisplayEngineService.sock");
        return EngineService::respond(call, to);
    }
};

std::optional<ChildProcess> gLeavingService;

void startLeavingService(EngineService& /*none*/) {
    gLeavingService.emplace(ChildProcess::ownPath(), Texts{kServiceArgument});
    EXPECT_TRUE(gLeavingService->waitForLine("ready"));
}

void endFault() {
    fault::setFullDescriptorTable(false);
    gLeavingService.reset();
    gReadError = 0;
    tHasNoMemory = false;
}

/** A fault that leaves the process without an engine: what is logged, and what is called. */
struct Fault {
    const char* name;
    void (*begin)(EngineService&);
    std::string complaints;
    std::string operations = ""; /**< None: there is no service in this process. */

    friend void PrintTo(const Fault& it, std::ostream* text) { *text << it.name; }
};

const char kAsked[] = "getSupported ";
const char kConfigured[] = "getSupported getEffectExByData ";
const char kRegistered[] = "getSupported getEffectExByData registerCallbackEx ";
const std::string kEngine = "6 DE N AISR ";
const std::string kFacade = "5 DE N VideoEngine ";
const std::string kNotSupported = kFacade + "isAisrValid:#: AisrProcessor is NOT supported!\n";
const std::string kFailed = kFacade + "isAisrValid:#: AisrEngine initialize() failed!\n";
const std::string kNoBinder = "6 DE N DEM checkDisplayEngineService:#: binder is nullptr!\n";
const std::string kNoLookup = ":#: Failed to get displayengineserver binder(#ms)!\n";
const std::string kNoCallback = kEngine + "registerCallback:#: new ClientCallback() failed!\n";
const Status kLost = Status::fromStatusT(android::DEAD_OBJECT);
const Status kRefusal = Status::fromExceptionCode(Status::EX_SECURITY);

const Fault kFaults[] = {
    {"NoService", [](auto&) {},
     kNoBinder + kFacade + "isAisrProcessorSupported" + kNoLookup + kNotSupported},
    {"ServiceThatLeaves", startLeavingService,
     kNoBinder + kEngine + "initialize" + kNoLookup + kFailed},
    {"AnswerTwo", [](auto& it) { it.support = 2; }, kNotSupported, kAsked},
    {"NoAnswer", [](auto& it) { it.outcomes["getSupported"] = kLost; },
     kFacade + "isAisrProcessorSupported:#: getSupported(DE_FEATURE_AISR, &support) failed!\n" +
         kNotSupported,
     kAsked},
    {"NoDescriptor", [](auto&) { fault::setFullDescriptorTable(true); },
     "5 DE N AISR updateAppName:#: Failed to open /proc/PID/cmdline! Too many open files\n" +
         kFailed +
         "5 DE N AISRAlgo openLibrary:#: Can't open library 'libAISRProcess_interface.so' - "
         "libAISRProcess_interface.so: cannot open shared object file: Too many open files\n",
     kAsked},
    {"NoName", [](auto&) { gReadError = EIO; },
     "5 DE N AISR updateAppName:#: Failed to read /proc/PID/cmdline! Input/output error\n" +
         kFailed,
     kAsked},
    {"NoConfig", [](auto& it) { it.outcomes["getEffectExByData"] = kRefusal; },
     kEngine +
         "getConfig:#: Failed to getEffectEx(DE_FEATURE_AISR, "
         "data:{DE_EFFECT_TYPE_CONFIG,NAME},&status(size=13),&ret)\n" +
         kFailed,
     kConfigured},
    {"NoCallback", [](auto&) { tHasNoMemory = true; }, kNoCallback + kFailed, kConfigured},
    {"Lost", [](auto& it) { it.outcomes["registerCallbackEx"] = kLost; },
     kEngine +
         "registerCallback:#: registerCallbackEx(callback, data:{ key:NAME feature:44 }) "
         "failed!\n" +
         kFailed,
     kRegistered},
    {"Refused", [](auto& it) { it.registerResult = false; }, kFailed, kRegistered},
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
#ifdef FAULT_NO_FULL_TABLE
    if (GetParam().name == std::string("NoDescriptor")) {
        GTEST_SKIP() << "the sanitizer's runtime needs descriptors";
    }
#endif
#ifdef FAULT_REAL_ALLOCATIONS
    if (GetParam().complaints.find(kNoCallback) == 0) {
        GTEST_SKIP() << "the allocator is the sanitizer's";
    }
#endif
    const bool isHere = !GetParam().operations.empty();
    sp<EngineService> service = isHere ? EngineService::install() : new EngineService;
    const std::string before = fault::holdings();
    GetParam().begin(*service);
    expectNothing();
    endFault();
    EXPECT_EQ(fault::takeComplaints(&log), GetParam().complaints);
    if (isHere) {
        fault::expectReturnTo(before);
        const EngineService::Callback held = service->callback();
        EXPECT_TRUE(held == nullptr || held->getStrongCount() == 2) << "the service's and this one";
    } else {
        service = EngineService::install();
    }
    expectNothing();
    EXPECT_EQ(fault::takeComplaints(&log), "") << "the outcome holds for the process";
    std::string operations;
    for (const std::string& call : service->journal.take()) {
        operations += call.substr(0, call.find(' ')) + " ";
    }
    EXPECT_EQ(operations, GetParam().operations);
    service->support = 1;
    service->outcomes.clear();
    EXPECT_EQ(manager->getReadingSupport(), 1) << "everything but enhancement works";
}

INSTANTIATE_TEST_SUITE_P(All, FaultBringUpTest, testing::ValuesIn(kFaults),
                         [](const auto& fault) { return std::string(fault.param.name); });

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

int main(int argc, char** argv) {
    const auto run = [](const std::string&) { return serve(new LeavingService); };
    return testMain(argc, argv, {{kServiceArgument, run}});
}
