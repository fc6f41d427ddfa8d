// SPDX-License-Identifier: Apache-2.0
// A service that is late, or dies, in every transaction, whose wait a signal interrupts: the
// promised outcome, nothing left behind, and the next service's calls work.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <future>
#include <ostream>

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
using android::binder::Status;
using protocol::Operation;

namespace {

constexpr char kServiceArgument[] = "--service";

class FaultyService : public protocol::RecordingService {
public:
    /** Without the events, which a client without a thread pool does not take. */
    Status registerCallback(const Callback& /*callback*/) override { return Status::ok(); }
};

struct Fault {
    std::string name;
    bool isBlocking; /**< The caller is in the middle of the transaction. */
    bool isAnswered; /**< The outcome is OK and the results are the service's. */

    friend void PrintTo(const Fault& it, std::ostream* text) { *text << it.name; }
};

const Fault kFaults[] = {
    {"Late", true, true},
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
    struct sigaction wake {};
    wake.sa_handler = [](int) {};
    sigaction(SIGUSR1, &wake, nullptr);
    EXPECT_EQ(checkDisplayEngineService(), nullptr);
    const std::string before = fault::holdings();
    for (const Operation& operation : protocol::kOperations) {
        SCOPED_TRACE(operation.call);
        ChildProcess program(ChildProcess::ownPath(), {kServiceArgument});
        ASSERT_TRUE(program.waitForLine("ready"));
        service = checkDisplayEngineService();
        ASSERT_NE(service, nullptr);
        std::atomic<pid_t> caller{0};
        std::future<void> called;
        if (fault.isBlocking) {
            siginfo_t stopped{};
            program.kill(SIGSTOP);
            EXPECT_EQ(waitid(P_PID, static_cast<id_t>(program.pid()), &stopped, WSTOPPED), 0);
            called = startAndWaitUntilAsleep([&] {
                caller = gettid();
                expectCall(operation, fault.isAnswered);
            });
            tgkill(getpid(), caller, SIGUSR1);
            waitUntilAsleep(caller);
        }
        if (fault.isAnswered) {
            program.kill(SIGCONT);
            called = {};
            expectCall(operation, true);
        }
        program.kill();
        program.wait();
        expectCall(operation, false);
        called = {};
        service.clear();
    }
    fault::expectReturnTo(before);
}

INSTANTIATE_TEST_SUITE_P(All, FaultServiceTest, testing::ValuesIn(kFaults),
                         [](const auto& fault) { return fault.param.name; });

}  // namespace

int main(int argc, char** argv) {
    const auto run = [](const std::string&) { return serve(new FaultyService); };
    return testMain(argc, argv, {{kServiceArgument, run}});
}
