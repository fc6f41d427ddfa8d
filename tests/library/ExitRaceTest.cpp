// SPDX-License-Identifier: Apache-2.0
// What other threads and processes are in the middle of when a client exits. Each client is ended
// by a signal when its exit does not come to an end.
#include <android/log.h>
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <iostream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "aidl/BnDisplayEngineCallback.h"
#include "client/DisplayEngineManager.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/ChildProcess.h"
#include "support/EngineService.h"
#include "support/ProcessingLibrary.h"
#include "support/TestMain.h"
#include "support/ThreadState.h"

using android::OK;
using android::Parcel;
using android::sp;
using android::String16;
using android::binder::Status;
using com::tivora::displayengine::IDisplayEngineCallback;

namespace {

constexpr char kClientArgument[] = "--client";

// Never destroyed, since the threads of a client go on while it exits.

sp<DisplayEngineManager>& client() {
    static sp<DisplayEngineManager>& theClient =
        *new sp<DisplayEngineManager>(new DisplayEngineManager);
    return theClient;
}

processing::Gate& gGate = *new processing::Gate;
std::thread& gOtherThread = *new std::thread;  // The late part of an exit waits for it.

sp<EngineService>& service() {
    static sp<EngineService>& theService = *new sp<EngineService>(EngineService::install());
    return theService;
}

void offer(uint64_t stream) {
    static processing::Frame& frame = *new processing::Frame;
    Aisr::BufferInfo info = frame.info(stream);
    client()->doVideoEnhance(info);
}

/** Starts the other thread and returns once it sleeps. */
void runOnOtherThread(const std::function<void()>& operation) {
    std::promise<pid_t> thread;
    gOtherThread = std::thread([&thread, operation] {
        thread.set_value(gettid());
        operation();
    });
    waitUntilAsleep(thread.get_future().get());
}

// The clients --------------------------------------------------------------------------------

/** Calls come on sixteen threads all the time, and no service is there. */
void hammer() {
    static std::atomic<int> started{0};
    for (int i = 0; i < 16; ++i) {
        std::thread([] {
            client()->getVideoAppConfig();
            ++started;
            for (;;) {
                client()->getVideoAppConfig();
                client()->setVideoRect(640, 480);
            }
        }).detach();
    }
    while (started < 16) {
        std::this_thread::yield();
    }
}

/** One frame is in processing and another one queued; the worker's join lets the first go on. */
void queueAFrame() {
    service()->config.abortMs = EngineService::kPatientMs;
    processing::use("without_nothing");
    std::atexit([] {
        gOtherThread.join();
        std::cout << "the queued frame's caller is back" << std::endl;
    });
    client()->onVideoAppStart();
    g_delogdEnable = true;
    __android_log_set_logger([](const __android_log_message* message) {
        if (std::string(message->message).find("join") != std::string::npos) {
            gGate.open();
        }
    });
    processing::hold("AisrProcess", &gGate);
    std::thread([] { offer(1); }).detach();
    processing::waitFor("AisrProcess");
    runOnOtherThread([] { offer(1); });
}

/** The first call of the facade waits for the service's answer, which never comes. */
void waitForAnAnswer() {
    service()->whenAsked = [] { gGate.pass(); };
    runOnOtherThread([] { client()->isVideoEngineSupported(); });
    gOtherThread.detach();
}

/** That call is held up at the service until the engine's time is over. */
void answerLate(bool isRegistering) {
    std::atexit([] {
        gGate.open();
        gOtherThread.join();
        std::cout << "supported: " << client()->isVideoEngineSupported()
                  << ", configurations: " << service()->journal.count("getEffectExByData")
                  << ", withdrawals: " << service()->journal.count("unregisterCallbackEx")
                  << std::endl;
    });
    if (isRegistering) {
        service()->whenRegistered = [](const EngineService::Callback&) { gGate.pass(); };
    } else {
        service()->whenAsked = [] { gGate.pass(); };
    }
    runOnOtherThread([] { client()->isVideoEngineSupported(); });
}

/** A child without a program of its own exits, and then its parent. */
void forkAndExit() {
    processing::use("without_nothing");
    client()->onVideoAppStart();
    std::cout << "the engine is up" << std::endl;
    const pid_t child = fork();
    if (child == 0) {
        alarm(kPatienceSeconds / 2);  // so that its parent can still tell
        std::exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    std::cout << "the child's status: " << status << std::endl;
}

int runClient(const std::string& name) {
    alarm(kPatienceSeconds);
    const std::map<std::string, std::function<void()>> clients = {
        {"hammer", hammer},
        {"queue", queueAFrame},
        {"wait", waitForAnAnswer},
        {"answer late", [] { answerLate(false); }},
        {"register late", [] { answerLate(true); }},
        {"fork", forkAndExit},
    };
    clients.at(name)();
    return 0;
}

// The tests ----------------------------------------------------------------------------------

TEST(ExitRaceTest, GoesOnWhateverOtherThreadsDo) {
    const struct {
        const char* client;
        const char* says;
    } exits[] = {
        {"hammer", ""},
        {"queue", "the queued frame's caller is back"},
        {"wait", ""},
        {"answer late", "supported: 0, configurations: 0, withdrawals: 0"},
        {"register late", "supported: 0, configurations: 1, withdrawals: 1"},
    };
    for (const auto& exit : exits) {
        SCOPED_TRACE(exit.client);
        ChildProcess process(ChildProcess::ownPath(), {kClientArgument, exit.client});
        EXPECT_EQ(process.readLine().value_or(""), exit.says);
        EXPECT_EQ(process.wait(), 0);
    }
}

TEST(ExitRaceTest, AForkedChildLeavesTheEngineToItsParent) {
    const std::filesystem::path tests =
        std::filesystem::path(ChildProcess::ownPath()).parent_path();
    ChildProcess remote(tests.parent_path() / "demo/service/displayengine-service");
    ASSERT_TRUE(remote.waitForLine("ready"));
    ChildProcess process(ChildProcess::ownPath(), {kClientArgument, "fork"});
    EXPECT_EQ(process.readLine().value_or(""), "the engine is up");
    EXPECT_EQ(process.readLine().value_or(""), "the child's status: 0");
    EXPECT_EQ(process.wait(), 0);

    remote.writeLine("quit");
    std::vector<std::string> withdrawals;
    while (const auto line = remote.readLine()) {
        if (line->rfind("unregisterCallbackEx", 0) == 0) {
            withdrawals.push_back(line->substr(line->rfind(' ')));
        }
    }
    EXPECT_EQ(withdrawals, std::vector<std::string>{" pid=" + std::to_string(process.pid())});
}

TEST(ExitRaceTest, AnEventNeedsNothingThatIsDestroyedBeforeTheThreadPoolStops) {
    class Callback : public com::tivora::displayengine::BnDisplayEngineCallback {
        Status onEvent(int32_t, int32_t) override { return Status::ok(); }
        Status onEventWithData(int32_t, const android::os::PersistableBundle&) override {
            return Status::ok();
        }
    };
    const sp<android::IBinder> callback = new Callback;
    Parcel event;
    event.writeInterfaceToken(IDisplayEngineCallback::descriptor);
    event.writeInt32(1);
    event.writeInt32(2);

    // The exit destroys this text, while events still come.
    auto& descriptor = const_cast<String16&>(IDisplayEngineCallback::descriptor);
    const String16 kept = descriptor;
    descriptor = String16("gone");
    Parcel reply;
    EXPECT_EQ(callback->transact(1, event, &reply, android::IBinder::FLAG_ONEWAY), OK);
    EXPECT_NE(callback->queryLocalInterface(kept), nullptr);
    descriptor = kept;
}

}  // namespace

int main(int argc, char** argv) {
    return testMain(argc, argv, {{kClientArgument, runClient}});
}
