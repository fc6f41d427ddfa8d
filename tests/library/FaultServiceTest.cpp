// SPDX-License-Identifier: Apache-2.0
// What goes wrong with the service, one fault at a time: the promised result and message, nothing
// left behind, and the next good call works.
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <future>
#include <iostream>
#include <memory>
#include <set>
#include <thread>

#include "aisr/AisrEngine.h"
#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/ChildProcess.h"
#include "support/EngineService.h"
#include "support/FaultInjection.h"
#include "support/LogCapture.h"
#include "support/ProcessingLibrary.h"
#include "support/ProtocolPeer.h"
#include "support/ServiceOperations.h"
#include "support/ThreadState.h"

using android::DEAD_OBJECT;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::binder::Status;
using com::tivora::displayengine::IDisplayEngineService;
using protocol::kUntouched;
using protocol::Results;
using Texts = std::vector<std::string>;

namespace {

constexpr char kServiceArgument[] = "--service";
constexpr char kClientArgument[] = "--client";
constexpr char kName[] = "DisplayEngineService";

// During a transaction -----------------------------------------------------------------------

/** A fault of the service in the middle of any transaction, and what the caller gets. */
struct Transaction {
    const char* fault;
    status_t error;
    bool isAnswered; /**< The results are the service's. */
    bool isAlive;    /**< The service is still there afterwards. */
    bool isBlocked = false;
    const char* message = "";

    friend void PrintTo(const Transaction& it, std::ostream* text) { *text << it.fault; }
};

const Transaction kTransactions[] = {
    {"Late", OK, true, true, true},
    {"Refusing", Status::EX_SERVICE_SPECIFIC, false, true},
    {"Garbage", android::NOT_ENOUGH_DATA, false, true},
    {"WrongFrame", DEAD_OBJECT, false, false, false, "malformed frame"},
    {"DeadBefore", DEAD_OBJECT, false, false},
    {"DeadDuring", DEAD_OBJECT, false, false, true},
    {"DeadInReply", DEAD_OBJECT, false, false},
    {"DeadAfter", OK, true, false},
};

/** Has one of these faults in its first transaction. */
class FaultyService : public protocol::RecordingService {
public:
    explicit FaultyService(const std::string& fault) : mFault(fault) {}

    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        const std::string fault = std::exchange(mFault, "");
        if (fault == "Late" || fault == "DeadDuring") {
            std::cout << "called" << std::endl;
            std::string line;
            std::getline(std::cin, line);
        }
        const status_t status = RecordingService::onTransact(code, data, reply, flags);
        if (fault == "Refusing" || fault == "Garbage") {
            reply->freeData();
            fault == "Garbage" ? reply->writeInt32(77)
                               : Status::fromServiceSpecificError(77, "no").writeToParcel(reply);
        }
        if (fault == "Leaving") {
            reply->freeData();
            Status::ok().writeToParcel(reply), reply->writeInt32(1);
            std::filesystem::remove(std::string(getenv("DISPLAYENGINE_RUNTIME_DIR")) + "/" + kName +
                                    ".sock");
        }
        fault::setNextSend(fault == "DeadInReply"  ? fault::Send::HALF
                           : fault == "DeadAfter"  ? fault::Send::WHOLE
                           : fault == "WrongFrame" ? fault::Send::WRONG
                                                   : fault::Send::USUAL);
        return status;
    }
    /** Without the events, which a client without a thread pool does not take. */
    Status registerCallback(const Callback& /*callback*/) override { return Status::ok(); }

private:
    std::string mFault;
};

std::unique_ptr<ChildProcess> startService(const std::string& fault) {
    auto program =
        std::make_unique<ChildProcess>(ChildProcess::ownPath(), Texts{kServiceArgument, fault});
    EXPECT_TRUE(program->waitForLine("ready"));
    return program;
}

class FaultyTransaction : public testing::TestWithParam<Transaction> {
protected:
    /** Calls the operation; its outcome is as said, and its results are the service's or none. */
    void expectCall(uint32_t code, status_t error, int32_t exception, bool isAnswered) {
        Results out;
        const Status status = protocol::callOperation(*service, code, &out, callback);
        EXPECT_EQ(status.transactionError(), error);
        EXPECT_EQ(status.exceptionCode(), error != OK ? Status::EX_TRANSACTION_FAILED : exception);
        EXPECT_EQ(out.text(), isAnswered ? protocol::kOperations[code - 1].results : kUntouched);
    }

    LogCapture log;
    const sp<protocol::RecordingCallback> callback = new protocol::RecordingCallback;
    sp<IDisplayEngineService> service;
};

TEST_P(FaultyTransaction, HasItsPromisedOutcomeAndLeavesNothing) {
    const Transaction& fault = GetParam();
    const bool isRefused = fault.error == Status::EX_SERVICE_SPECIFIC;
    EXPECT_EQ(checkDisplayEngineService(), nullptr);
    const std::string before = fault::holdings();
    for (uint32_t code = 1; code <= protocol::kOperationCount; ++code) {
        SCOPED_TRACE(protocol::kOperations[code - 1].call);
        log.take();
        const auto program = startService(fault.fault);
        service = checkDisplayEngineService();
        ASSERT_NE(service, nullptr);
        const auto end = [&] { program->kill(), program->wait(); };
        if (fault.fault == std::string("DeadBefore")) {
            end();
        }
        std::promise<pid_t> thread;
        auto called = std::async(std::launch::async, [&] {
            thread.set_value(ownThread());
            expectCall(code, isRefused ? OK : fault.error, isRefused ? fault.error : 0,
                       fault.isAnswered);
        });
        if (fault.isBlocked) {
            EXPECT_TRUE(program->waitForLine("called"));
            waitUntilAsleep(thread.get_future().get());
            fault.isAlive ? program->writeLine("go on") : end();
        }
        called.get();
        EXPECT_NE(log.last("").find(fault.message), std::string::npos) << log.last("");
        if (fault.isAlive) {
            expectCall(code, OK, 0, true);
        }
        end();
        expectCall(code, DEAD_OBJECT, 0, false);
        service.clear();
        EXPECT_EQ(callback->getStrongCount(), 1);
    }
    EXPECT_TRUE(fault::returnsTo(before)) << fault::holdings() << " after " << before;
    const auto sound = startService("");
    service = checkDisplayEngineService();
    expectCall(1, OK, 0, true);
}

INSTANTIATE_TEST_SUITE_P(All, FaultyTransaction, testing::ValuesIn(kTransactions),
                         [](const auto& fault) { return std::string(fault.param.fault); });

// While the engine comes up ------------------------------------------------------------------

using Guard = std::shared_ptr<void>;

/** A fault that leaves the process without an engine: what is logged, and what is called. */
struct BringUp {
    const char* name;
    std::function<Guard(EngineService*)> prepare; /**< Lasts as long as what it returns. */
    std::string complaints;
    std::string operations = ""; /**< None: there is no service in this process. */

    friend void PrintTo(const BringUp& it, std::ostream* text) { *text << it.name; }
};

/** A fault that the service has from now on. */
template <typename CHANGE>
std::function<Guard(EngineService*)> change(CHANGE change) {
    return [change](EngineService* service) {
        return service != nullptr ? change(*service) : void(), Guard();
    };
}

/** A fault of the system, which is switched on with 1 and off with 0. */
std::function<Guard(EngineService*)> during(void (*change)(int)) {
    return [change](EngineService*) {
        return change(1), Guard(nullptr, [change](auto) { change(0); });
    };
}

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
const Status kLost = Status::fromStatusT(DEAD_OBJECT);
const Status kException = Status::fromExceptionCode(Status::EX_SECURITY);

const BringUp kBringUps[] = {
    {"NoService", change([](auto&) {}),
     kNoBinder + kFacade + "isAisrProcessorSupported" + kNoLookup + kNotSupported},
    {"ServiceThatLeaves", [](EngineService*) { return Guard(startService("Leaving")); },
     kNoBinder + kEngine + "initialize" + kNoLookup + kFailed},
    {"AnswerTwo", change([](auto& it) { it.support = 2; }), kNotSupported, kAsked},
    {"AnswerNegative", change([](auto& it) { it.support = -1; }), kNotSupported, kAsked},
    {"NoAnswer", change([](auto& it) { it.supportStatus = kLost; }),
     kFacade + "isAisrProcessorSupported:#: getSupported(DE_FEATURE_AISR, &support) failed!\n" +
         kNotSupported,
     kAsked},
    {"NoDescriptor",
     [](EngineService*) { return Guard(std::make_shared<fault::FullDescriptorTable>()); },
     "5 DE N AISR updateAppName:#: Failed to open /proc/PID/cmdline! Too many open files\n" +
         kFailed +
         "5 DE N AISRAlgo openLibrary:#: Can't open library 'libAISRProcess_interface.so' - "
         "libAISRProcess_interface.so: cannot open shared object file: Too many open files\n",
     kAsked},
    {"NoName", during([](int on) { fault::setReadError(on * EIO); }),
     "5 DE N AISR updateAppName:#: Failed to read /proc/PID/cmdline! Input/output error\n" +
         kFailed,
     kAsked},
    {"NoConfig", change([](auto& it) { it.configStatus = kException; }),
     kEngine +
         "getConfig:#: Failed to getEffectEx(DE_FEATURE_AISR, "
         "data:{DE_EFFECT_TYPE_CONFIG,NAME},&status(size=13),&ret)\n" +
         kFailed,
     kConfigured},
    {"ShortConfig", change([](auto& it) { it.config.resize(12); }),
     kEngine + "getConfig:#: Invalid input: status(size=12)\n" + kFailed, kConfigured},
    {"InvalidConfig", change([](auto& it) { it.config[5] = 1; }),
     kEngine + "getConfig:#: Invalid input: rect:{ min:512x512 max:720x1280 } maxFps:1\n" + kFailed,
     kConfigured},
    {"NoCallback", during([](int on) { fault::setFailingAllocation(on * 1); }),
     kNoCallback + kFailed, kConfigured},
    {"HalfACallback", during([](int on) { fault::setFailingAllocation(on * 2); }),
     kNoCallback + kFailed, kConfigured},
    {"Lost", change([](auto& it) { it.registerStatus = kLost; }),
     kEngine +
         "registerCallback:#: registerCallbackEx(callback, data:{ key:NAME feature:44 }) "
         "failed!\n" +
         kFailed,
     kRegistered},
    {"Refused", change([](auto& it) { it.registerResult = false; }), kFailed, kRegistered},
};

class FaultyBringUp : public testing::TestWithParam<BringUp> {
protected:
    FaultyBringUp() : manager(new DisplayEngineManager) {
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

TEST_P(FaultyBringUp, IsFinalAndLeavesNoRegistration) {
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
    sp<EngineService> service = isHere ? EngineService::install() : nullptr;
    const std::string before = fault::holdings();
    Guard guard = GetParam().prepare(service.get());
    expectNothing();
    guard.reset();
    EXPECT_EQ(fault::takeComplaints(&log), GetParam().complaints);
    if (isHere) {
        EXPECT_TRUE(fault::returnsTo(before)) << fault::holdings() << " after " << before;
        const EngineService::Callback held = service->callback();
        EXPECT_TRUE(held == nullptr || held->getStrongCount() == 2) << "the service's and this one";
    } else {
        service = EngineService::install();
    }
    expectNothing();
    EXPECT_EQ(fault::takeComplaints(&log), "") << "the outcome holds for the process";
    std::string operations;
    for (const std::string& call : service->takeCalls()) {
        operations += call.substr(0, call.find(' ')) + " ";
    }
    EXPECT_EQ(operations, GetParam().operations);
    service->support = 1;
    service->supportStatus = Status::ok();
    EXPECT_EQ(manager->getReadingSupport(), 1) << "everything but enhancement works";
}

INSTANTIATE_TEST_SUITE_P(All, FaultyBringUp, testing::ValuesIn(kBringUps),
                         [](const auto& fault) { return std::string(fault.param.name); });

// A service that goes, a client that goes ----------------------------------------------------

TEST(FaultyService, IsCalledAgainOnceThereIsAnotherOne) {
    size_t before = 0;
    for (int round = 0; round < 3; ++round) {
        const auto program = startService("DeadAfter");
        EXPECT_EQ(setCwbForceEnable(1), 0);
        EXPECT_EQ(program->wait(), 0);
        // What is left of the dead one is found by the next that looks for the service.
        const size_t open = fault::descriptors();
        EXPECT_EQ(open, round == 0 ? open : before);
        before = open;
    }
}

TEST(FaultyService, DoesNotKeepTheEngineFromEnding) {
    LogCapture log;
    processing::use("without_nothing");
    const sp<EngineService> service = EngineService::install();
    auto engine = std::make_unique<AisrEngine>();
    ASSERT_TRUE(engine->initialize());
    protocol::raise(service, Status::EX_SECURITY, "no");
    engine.reset();
    EXPECT_EQ(service->count("unregisterCallbackEx"), 1U);
    EXPECT_EQ(fault::takeComplaints(&log),
              "5 DE N AISR unregisterCallback:#: unregisterCallbackEx(data:{ key:NAME feature:44 "
              "}) failed!\n");
}

/** Registers both ways and waits to be ended. */
int runClient(const std::string& /*argument*/) {
    const sp<DisplayEngineManager> manager = new DisplayEngineManager;
    manager->registerCallback(new protocol::RecordingCallback);
    std::cout << "registered " << manager->getVideoAppConfig() << std::endl;
    std::string line;
    std::getline(std::cin, line);
    return 0;
}

TEST(FaultyClient, IsDroppedByTheServiceWhenItDies) {
    const std::string tests = ChildProcess::ownPath().substr(0, ChildProcess::ownPath().rfind('/'));
    ChildProcess service(tests + "/../demo/service/displayengine-service");
    ASSERT_TRUE(service.waitForLine("ready"));
    const std::string process = std::to_string(service.pid());
    const size_t before = fault::descriptors(process);
    for (int round = 0; round < 2; ++round) {
        ChildProcess client(ChildProcess::ownPath(), {kClientArgument});
        ASSERT_TRUE(client.waitForLine("registered 1"));
        const std::string pid = "pid=" + std::to_string(client.pid());
        service.writeLine("enable on");
        EXPECT_TRUE(service.waitForLine("enable on clients=2"));
        client.kill();
        std::set<std::string> died;
        while (died.size() < 2) {
            const std::string line = service.readLine().value_or("died at once");
            if (line.rfind("died ", 0) == 0) {
                died.insert(line);
            }
        }
        EXPECT_EQ(died, (std::set<std::string>{"died " + pid,
                                               "died key=" + ChildProcess::ownPath() + " " + pid}));
        service.writeLine("enable on");
        EXPECT_TRUE(service.waitForLine("enable on clients=0"));
        while (fault::descriptors(process) != before) {
            std::this_thread::yield();
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const auto serve = [](const std::string& fault) {
        return protocol::serve({{kName, new FaultyService(fault)}});
    };
    return protocol::testMain(argc, argv,
                              {{kServiceArgument, serve}, {kClientArgument, runClient}});
}
