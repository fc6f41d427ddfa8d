// SPDX-License-Identifier: Apache-2.0
// A service that is late, dies, or has its transfers interrupted, in every transaction: the
// promised outcome, nothing left behind, and the next service's calls work.
#include <binder/ProcessState.h>
#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <iostream>
#include <memory>

#include "client/ServiceConnection.h"
#include "support/ChildProcess.h"
#include "support/FaultInjection.h"
#include "support/LogCapture.h"
#include "support/Recording.h"
#include "support/ServiceOperations.h"
#include "support/TestMain.h"
#include "support/ThreadState.h"

using android::DEAD_OBJECT;
using android::OK;
using android::sp;
using android::status_t;
using android::binder::Status;
using protocol::Operation;
using Texts = std::vector<std::string>;

namespace {

constexpr char kServiceArgument[] = "--service";
constexpr char kInterrupted[] = "Interrupted";
constexpr char kInterruptedEvents[] = "InterruptedEvents";

/** May block in its first transaction. */
class FaultyService : public protocol::RecordingService {
public:
    explicit FaultyService(bool isBlocking) : mIsBlocking(isBlocking) {}

    status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                        uint32_t flags) override {
        if (std::exchange(mIsBlocking, false)) {
            std::cout << "called" << std::endl;
            std::string line;
            std::getline(std::cin, line);
        }
        return RecordingService::onTransact(code, data, reply, flags);
    }
    /** Without the events, which a client without a thread pool does not take. */
    Status registerCallback(const Callback& /*callback*/) override { return Status::ok(); }

private:
    bool mIsBlocking;
};

std::unique_ptr<ChildProcess> startService(const std::string& fault) {
    auto program =
        std::make_unique<ChildProcess>(ChildProcess::ownPath(), Texts{kServiceArgument, fault});
    EXPECT_TRUE(program->waitForLine("ready"));
    return program;
}

struct Fault {
    std::string name;
    bool isBlocking; /**< The caller is in the middle of the transaction. */
    bool isAnswered; /**< The outcome is OK and the results are the service's. */

    friend void PrintTo(const Fault& it, std::ostream* text) { *text << it.name; }
};

const Fault kFaults[] = {
    {"Late", true, true},
    {"Interrupted", false, true},
    {"DeadBefore", false, false},
    {"DeadDuring", true, false},
};

class FaultServiceTest : public testing::TestWithParam<Fault> {
protected:
    /** The operation has the service's results, or DEAD_OBJECT and none. */
    void expectCall(const Operation& operation, bool isAnswered) {
        protocol::Results out;
        const Status status = operation.run(*service, &out, callback);
        EXPECT_EQ(status.transactionError(), isAnswered ? OK : DEAD_OBJECT);
        EXPECT_EQ(status.isOk(), isAnswered);
        EXPECT_EQ(out.text(), isAnswered ? operation.results : protocol::kUntouched);
    }

    LogCapture log;
    const sp<protocol::RecordingCallback> callback = new protocol::RecordingCallback;
    sp<protocol::IDisplayEngineService> service;
};

TEST_P(FaultServiceTest, HasItsPromisedOutcomeInAnyTransactionAndLeavesNothing) {
    const Fault& fault = GetParam();
    fault::setInterrupting(fault.name == kInterrupted);
    EXPECT_EQ(checkDisplayEngineService(), nullptr);
    const std::string before = fault::holdings();
    for (const Operation& operation : protocol::kOperations) {
        SCOPED_TRACE(operation.call);
        const auto program = startService(fault.name);
        service = checkDisplayEngineService();
        ASSERT_NE(service, nullptr);
        const auto end = [&] {
            program->kill();
            program->wait();
        };
        std::future<void> called;
        if (fault.isBlocking) {
            called = startAndWaitUntilAsleep([&] { expectCall(operation, fault.isAnswered); });
            EXPECT_TRUE(program->waitForLine("called"));
        }
        if (fault.isAnswered) {
            program->writeLine("go on");
            called = {};
            expectCall(operation, true);
        }
        end();
        expectCall(operation, false);
        called = {};
        service.clear();
        EXPECT_EQ(callback->getStrongCount(), 1);
    }
    EXPECT_TRUE(fault::returnsTo(before)) << fault::holdings() << " after " << before;
}

TEST_F(FaultServiceTest, SendsItsEventsThoughTransfersAreInterrupted) {
    const auto program = startService(kInterruptedEvents);
    fault::setInterrupting(true);
    service = checkDisplayEngineService();
    android::ProcessState::self()->startThreadPool();
    EXPECT_TRUE(service->registerCallback(callback).isOk());
    EXPECT_EQ(callback->take(2), (Texts{"onEvent 11 -12", "onEventWithData 3 { Enable=true }"}));
}

INSTANTIATE_TEST_SUITE_P(All, FaultServiceTest, testing::ValuesIn(kFaults),
                         [](const auto& fault) { return fault.param.name; });

}  // namespace

int main(int argc, char** argv) {
    const auto run = [](const std::string& fault) {
        const bool hasEvents = fault == kInterruptedEvents;
        fault::setInterrupting(fault == kInterrupted || hasEvents);
        return hasEvents ? serve(new protocol::RecordingService)
                         : serve(new FaultyService(fault != kInterrupted));
    };
    return testMain(argc, argv, {{kServiceArgument, run}});
}
