// SPDX-License-Identifier: Apache-2.0
// The end of a client process: the engine withdraws, joins its worker and unloads the processing
// library, in this order, with a real service at the other end and also when that one has died.
// What other threads do meanwhile, and how a long name is cut, is the stress test's.
#include <android/log.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <future>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "client/DisplayEngineManager.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/ChildProcess.h"
#include "support/ProcessingLibrary.h"
#include "support/TestMain.h"
#include "support/ThreadState.h"

using android::sp;
using Texts = std::vector<std::string>;

namespace {

constexpr char kClientArgument[] = "--client";
constexpr uint64_t kStream = 1;

sp<DisplayEngineManager>& client() {
    static sp<DisplayEngineManager>& theClient = *new sp<DisplayEngineManager>;
    return theClient;
}

/** Opens when the frame that is held up may be done. */
processing::Gate& gate() {
    static processing::Gate& theGate = *new processing::Gate;
    return theGate;
}

/** The log goes to standard error as usual; the join of the worker opens the gate. */
void watchForJoin(const struct __android_log_message* message) {
    __android_log_stderr_logger(message);
    if (std::string(message->message).find("join") != std::string::npos) {
        gate().open();
    }
}

/** Runs after the engine was released, as it was registered before the first use of the facade. */
void callLate() {
    Aisr::BufferInfo info = processing::Frame().info(kStream);
    client()->setAisrEnable(true);
    client()->onVideoAppStart();
    client()->doVideoEnhance(info);
    std::cout << "late: " << client()->needVideoEnhance() << client()->isVideoEngineSupported()
              << info.idx << std::endl;
}

/** Offers a frame; whether the processing library saw it. */
bool offer() {
    static processing::Frame& frame = *new processing::Frame;
    const size_t before = processing::count("AisrProcess");
    Aisr::BufferInfo info = frame.info(kStream);
    client()->doVideoEnhance(info);
    return processing::count("AisrProcess") == before + 1;
}

/** Another thread stops the app, and waits in the engine for the frame; the exit opens the gate. */
void stopTheApp() {
    std::promise<pid_t> thread;
    std::thread([&] {
        thread.set_value(gettid());
        client()->onVideoAppStop();
    }).detach();
    waitUntilAsleep(thread.get_future().get());
    std::atexit([] { gate().open(); });
}

/**
 * A client that offers a frame, waits for a line, offers another, and exits; told to, while a frame
 * is held up in the processing library until the engine waits for its worker, or for a call that is
 * under way.
 */
int runClient(const std::string& mode) {
    processing::use("without_nothing");
    client() = new DisplayEngineManager;
    g_delogdEnable = g_delogiEnable = true;
    __android_log_set_logger(watchForJoin);
    std::atexit(callLate);
    client()->onVideoAppStart();
    std::cout << "first: " << offer() << std::endl;
    std::string line;
    std::getline(std::cin, line);
    std::cout << "second: " << offer() << std::endl;
    if (mode != "idle") {
        processing::setHook([](const processing::Call& call) {
            if (call.entry == "AisrProcess") {
                gate().pass();
                waitUntilAsleep(getpid());
                __android_log_print(ANDROID_LOG_INFO, "TEST", "the frame is done");
            }
            return 0;
        });
        offer();
        processing::waitFor("AisrProcess", 3);
        if (mode == "stopping") {
            stopTheApp();
        }
    }
    return 0;
}

std::string servicePath() {
    const std::filesystem::path tests =
        std::filesystem::path(ChildProcess::ownPath()).parent_path();
    return (tests.parent_path() / "demo/service/displayengine-service").string();
}

class ExitTest : public testing::Test {
protected:
    ExitTest() { EXPECT_TRUE(service.waitForLine("ready")); }

    /** Runs the client to its end; between its two frames, `meanwhile` is called. */
    template <typename ACTION>
    void run(const std::string& mode, ACTION meanwhile) {
        ChildProcess program(ChildProcess::ownPath(), {kClientArgument, mode});
        identity = "key=" + ChildProcess::ownPath().substr(0, 255) +
                   " pid=" + std::to_string(program.pid());
        EXPECT_TRUE(program.waitForLine("first: 1"));
        EXPECT_TRUE(service.waitForLine("registered " + identity));
        meanwhile();
        program.writeLine("go on");
        EXPECT_EQ(program.readLine(), "second: 1");
        EXPECT_EQ(program.readLine(), "late: 000");
        EXPECT_EQ(program.wait(), 0);
        log = program.standardError();
    }

    /** That the log holds these texts in this order. */
    void expectOrder(const Texts& texts) const {
        size_t position = 0;
        for (const std::string& text : texts) {
            position = log.find(text, position);
            ASSERT_NE(position, std::string::npos) << text << " is not next in\n" << log;
        }
    }

    ChildProcess service{servicePath(), {"--abort-ms", "1000"}};
    std::string identity; /**< How the service names the client. */
    std::string log;
};

TEST_F(ExitTest, WithdrawsThenJoinsThenUnloads) {
    run("idle", [] {});
    EXPECT_TRUE(service.waitForLine("withdrawn " + identity));
    expectOrder({"unregisterCallback:", "success.", "mIsEnhanceAlive=false", "join",
                 "~AisrAlgorithm:", "Unload library."});
    EXPECT_NE(log.find("enhance died."), std::string::npos);
    EXPECT_LT(log.find("enhance died."), log.find("~AisrAlgorithm:"));
}

TEST_F(ExitTest, WaitsForTheFrameInProcessing) {
    run("busy", [] {});
    EXPECT_TRUE(service.waitForLine("withdrawn " + identity));
    expectOrder({"expired", "unregisterCallback:", "join", "the frame is done", "enhance died.",
                 "~AisrAlgorithm:", "Unload library."});
}

TEST_F(ExitTest, WaitsForACallThatIsUnderWay) {
    run("stopping", [] {});
    EXPECT_TRUE(service.waitForLine("withdrawn " + identity));
    expectOrder({"expired", "the frame is done", "~AisrEngine:", "unregisterCallback:", "join",
                 "Unload library."});
}

TEST_F(ExitTest, GoesOnWhenTheServiceHasDied) {
    run("idle", [this] {
        service.kill(SIGKILL);
        EXPECT_EQ(service.wait(), -SIGKILL);
    });
    expectOrder({"~AisrEngine:", "Failed to get displayengineserver binder(",
                 "mIsEnhanceAlive=false", "join", "~AisrAlgorithm:", "Unload library."});
}

}  // namespace

int main(int argc, char** argv) {
    return testMain(argc, argv, {{kClientArgument, runClient}});
}
