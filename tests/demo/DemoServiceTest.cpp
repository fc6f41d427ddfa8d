// SPDX-License-Identifier: Apache-2.0
// The sample service as a program: its registrations, and how it starts and ends. What it answers
// to each question, and its configuration, is seen by DectlTest.
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "ProgramRun.h"
#include "aidl/IDisplayEngineService.h"
#include "client/ServiceConnection.h"
#include "support/Recording.h"

using protocol::RecordingCallback;
using protocol::registration;

namespace {

TEST(DemoServiceTest, AKeyHasOneCallbackAndItIsToldTheState) {
    android::ProcessState::self()->startThreadPool();
    ChildProcess program(kService, words("--toggle 0.02:off --toggle 0:on"));
    EXPECT_TRUE(program.waitForLine("enable off clients=0"));
    const auto service = checkDisplayEngineService();
    const std::string self = " key=a b pid=" + std::to_string(getpid());
    const android::sp<RecordingCallback> callbacks[] = {new RecordingCallback,
                                                        new RecordingCallback};
    for (const auto& callback : callbacks) {
        bool isAccepted = false;
        EXPECT_TRUE(service->registerCallbackEx(callback, registration("a b"), &isAccepted).isOk());
        EXPECT_TRUE(isAccepted);
        EXPECT_TRUE(program.waitForLine("registered" + self));
        EXPECT_EQ(callback->take(1), Strings{"onEventWithData 3 Enable=false"});
        EXPECT_TRUE(service->registerCallback(callbacks[0]).isOk()) << "a second time is nothing";
    }
    program.writeLine("enable on");
    EXPECT_TRUE(program.waitForLine("enable on clients=2"));
    program.writeLine("status");
    EXPECT_TRUE(program.waitForLine(" " + self));
    EXPECT_TRUE(service->unregisterCallbackEx(registration("a b")).isOk());
    EXPECT_TRUE(program.waitForLine("withdrawn" + self));
    EXPECT_FALSE(service->unregisterCallbackEx(registration("a b")).isOk());
    EXPECT_TRUE(service->unregisterCallback(callbacks[0]).isOk());
}

TEST(DemoServiceTest, StartsAndEndsCleanOrSaysWhyNot) {
    const std::string directory = std::getenv("DISPLAYENGINE_RUNTIME_DIR");
    const std::string shared = directory + "/shared";
    Service program({"--toggle", "3600:on"});
    ASSERT_EQ(mkdir(shared.c_str(), 0755), 0);
    ProgramRun(kService, {}).expectFailure(1, "another process has already registered");
    ProgramRun(kService, {}, {"DISPLAYENGINE_RUNTIME_DIR=" + shared})
        .expectFailure(1, "the runtime directory belongs to another user or is open to others");
    for (const char* arguments :
         {"--min-width wide", "--short-config 14", "--toggle 1x:on", "--toggle 1:maybe"}) {
        ProgramRun(kService, words(arguments)).expectFailure(2, words(arguments)[0]);
    }
    std::filesystem::remove(shared);
    program.writeLine("quit");
    EXPECT_EQ(program.wait(), 0);
    for (const int signal : {SIGTERM, SIGINT}) {
        EXPECT_TRUE(std::filesystem::is_empty(directory));
        Service next;
        next.kill(signal);
        EXPECT_EQ(next.wait(), 0);
    }
}

}  // namespace
