// SPDX-License-Identifier: Apache-2.0
// A service that is late, or dies, in every transaction, whose wait a signal interrupts: the
// promised outcome, nothing left behind, and the next service's calls work.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <future>
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

namespace {

constexpr char kServiceArgument[] = "--service";

class FaultyService : public protocol::RecordingService {
public:
    /** Without the events, which a client without a thread pool does not take. */
    Status registerCallback(const Callback& /*callback*/) override { return Status::ok(); }
};

/** Starts a call that is under way, as the program is stopped in front of it, and interrupts it. */
template <typename CALL>
std::future<void> callStopped(ChildProcess& program, const CALL& call) {
    siginfo_t stopped{};
    program.kill(SIGSTOP);
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(program.pid()), &stopped, WSTOPPED), 0);
    const auto caller = std::make_shared<std::atomic<pid_t>>(0);
    auto called = startAndWaitUntilAsleep([caller, call] {
        *caller = gettid();
        call();
    });
    tgkill(getpid(), *caller, SIGUSR1);
    waitUntilAsleep(*caller);
    return called;
}

TEST(FaultServiceTest, HasItsPromisedOutcomeInAnyTransactionAndLeavesNothing) {
    LogCapture log;
    struct sigaction wake {};
    wake.sa_handler = [](int) {};
    sigaction(SIGUSR1, &wake, nullptr);
    EXPECT_EQ(checkDisplayEngineService(), nullptr);
    const std::string before = fault::holdings();
    const sp<protocol::RecordingCallback> callback = new protocol::RecordingCallback;
    for (const protocol::Operation& operation : protocol::kOperations) {
        SCOPED_TRACE(operation.call);
        ChildProcess program(ChildProcess::ownPath(), {kServiceArgument});
        ASSERT_TRUE(program.waitForLine("ready"));
        const sp<protocol::IDisplayEngineService> service = checkDisplayEngineService();
        ASSERT_NE(service, nullptr);
        const auto call = [&](status_t expected) {
            protocol::Results out;
            const Status status = operation.run(*service, &out, callback);
            EXPECT_EQ(status.transactionError(), expected);
            EXPECT_EQ(status.isOk(), expected == OK);
            EXPECT_EQ(out.text(), expected == OK ? operation.results : protocol::kUntouched);
        };
        const std::future<void> late = callStopped(program, [&] { call(OK); });
        program.kill(SIGCONT);
        late.wait();
        const std::future<void> lost = callStopped(program, [&] { call(DEAD_OBJECT); });
        program.kill();
        lost.wait();
        program.wait();
        call(DEAD_OBJECT);
    }
    fault::expectReturnTo(before);
}

}  // namespace

int main(int argc, char** argv) {
    const auto run = [](const std::string&) { return serve(new FaultyService); };
    return testMain(argc, argv, {{kServiceArgument, run}});
}
