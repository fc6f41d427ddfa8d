// SPDX-License-Identifier: Apache-2.0
// A service that dies or is late, before, in and after every transaction: the promised outcome,
// nothing left behind, and the next service's calls work.
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

namespace {

constexpr char kServiceArgument[] = "--service";

/** Has a fault in its first transaction. */
class FaultyService : public protocol::RecordingService {
public:
    explicit FaultyService(const std::string& fault) : mFault(fault) {}

    status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                        uint32_t flags) override {
        const std::string fault = std::exchange(mFault, "");
        if (fault == "Late" || fault == "DeadDuring") {
            std::cout << "called" << std::endl;
            std::string line;
            std::getline(std::cin, line);
        } else if (fault == "DeadAfter") {
            fault::exitAfterNextSend();
        }
        return RecordingService::onTransact(code, data, reply, flags);
    }
    /** Without the events, which a client without a thread pool does not take. */
    Status registerCallback(const Callback& /*callback*/) override { return Status::ok(); }

private:
    std::string mFault;
};

std::unique_ptr<ChildProcess> startService(const std::string& fault) {
    auto program = std::make_unique<ChildProcess>(
        ChildProcess::ownPath(), std::vector<std::string>{kServiceArgument, fault});
    EXPECT_TRUE(program->waitForLine("ready"));
    return program;
}

struct Fault {
    std::string name;
    bool isBlocking; /**< The caller is in the middle of the transaction. */
    bool isAnswered; /**< The outcome is OK and the results are the service's. */
    bool isDeadly;   /**< There is no service afterwards. */

    friend void PrintTo(const Fault& it, std::ostream* text) { *text << it.name; }
};

const Fault kFaults[] = {
    {"Late", true, true, false},
    {"DeadBefore", false, false, true},
    {"DeadDuring", true, false, true},
    {"DeadAfter", false, true, true},
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
        if (fault.isBlocking) {
            auto called = startAndWaitUntilAsleep([&] { expectCall(operation, fault.isAnswered); });
            EXPECT_TRUE(program->waitForLine("called"));
            if (fault.isDeadly) {
                end();
            }
            program->writeLine("go on");
        } else {
            if (!fault.isAnswered) {
                end();
            }
            expectCall(operation, fault.isAnswered);
        }
        if (!fault.isDeadly) {
            expectCall(operation, true);
        }
        end();
        expectCall(operation, false);
        service.clear();
        EXPECT_EQ(callback->getStrongCount(), 1);
    }
    EXPECT_TRUE(fault::returnsTo(before)) << fault::holdings() << " after " << before;
    const auto sound = startService("");
    service = checkDisplayEngineService();
    expectCall(protocol::kOperations[0], true);
}

INSTANTIATE_TEST_SUITE_P(All, FaultServiceTest, testing::ValuesIn(kFaults),
                         [](const auto& fault) { return fault.param.name; });

}  // namespace

int main(int argc, char** argv) {
    const auto run = [](const std::string& fault) { return serve(new FaultyService(fault)); };
    return testMain(argc, argv, {{kServiceArgument, run}});
}
