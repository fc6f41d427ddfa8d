// SPDX-License-Identifier: Apache-2.0
// The sample service as a program: its configuration, its registrations, and how it ends. What it
// answers to each question is seen by DectlTest.
#include <binder/PersistableBundle.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utils/String16.h>

#include <csignal>
#include <cstdlib>

#include "ProgramRun.h"
#include "aidl/IDisplayEngineService.h"
#include "client/ServiceConnection.h"
#include "support/Recording.h"

using android::sp;
using android::String16;
using android::os::PersistableBundle;
using protocol::RecordingCallback;

namespace {

using Strings = std::vector<std::string>;

const std::string kService = kDemo / "service/displayengine-service";

PersistableBundle request(const std::string& key, int32_t feature = 44) {
    PersistableBundle data;
    data.putString(String16("Key"), String16(key.c_str()));
    data.putInt(String16("Feature"), feature);
    data.putInt(String16("Type"), 26);
    return data;
}

TEST(DemoServiceTest, TheConfigurationFollowsTheOptionsAndTheEnableState) {
    using Values = std::vector<int32_t>;
    const struct {
        Strings arguments;
        Values values;
    } cases[] = {
        {{}, {1, 512, 512, 720, 1280, 30, 38, 2, 3, 40, 33, 5, 10000}},
        {{"--enable",
          "off",
          "--min-width",
          "1",
          "--min-height",
          "2",
          "--max-width",
          "3",
          "--max-height",
          "4",
          "--max-fps",
          "5",
          "--monitor-frames",
          "6",
          "--monitor-tolerance",
          "7",
          "--monitor-restore",
          "-8",
          "--abort-ms",
          "9",
          "--overload-ms",
          "10",
          "--overload-count",
          "11",
          "--overload-period-ms",
          "12"},
         {0, 1, 2, 3, 4, 5, 6, 7, -8, 9, 10, 11, 12}},
        {{"--short-config", "3"}, {1, 512, 512}},
    };
    for (const auto& c : cases) {
        ChildProcess program(kService, c.arguments);
        EXPECT_TRUE(program.waitForLine("ready"));
        Values values(13);
        int32_t result = -1;
        const auto service = checkDisplayEngineService();
        EXPECT_TRUE(service->getEffectExByData(44, request("a"), &values, &result).isOk());
        EXPECT_EQ(result, 0);
        EXPECT_EQ(values, c.values);
    }
}

TEST(DemoServiceTest, AKeyHasOneCallbackAndItIsToldTheState) {
    android::ProcessState::self()->startThreadPool();
    ChildProcess program(kService, {"--toggle", "0.02:off", "--toggle", "0:on"});
    for (const char* line : {"ready", "enable on clients=0", "enable off clients=0"}) {
        EXPECT_TRUE(program.waitForLine(line)) << line;
    }
    const auto service = checkDisplayEngineService();
    const std::string self = " key=a b pid=" + std::to_string(getpid());
    const Strings off = {"onEventWithData 3 { Enable=false }"};
    const sp<RecordingCallback> first = new RecordingCallback;
    const sp<RecordingCallback> second = new RecordingCallback;
    bool isAccepted = false;
    EXPECT_TRUE(service->registerCallbackEx(first, request("a b"), &isAccepted).isOk());
    EXPECT_TRUE(isAccepted);
    EXPECT_TRUE(program.waitForLine("registered" + self));
    EXPECT_EQ(first->take(1), off);
    EXPECT_TRUE(service->registerCallbackEx(second, request("a b"), &isAccepted).isOk());
    EXPECT_TRUE(program.waitForLine("replaced" + self));
    EXPECT_EQ(second->take(1), off);
    EXPECT_TRUE(service->registerCallback(first).isOk());
    EXPECT_TRUE(service->registerCallback(first).isOk()) << "once more changes nothing";
    program.writeLine("enable on");
    EXPECT_TRUE(program.waitForLine("enable on clients=2"));
    EXPECT_TRUE(service->unregisterCallbackEx(request("a b")).isOk());
    EXPECT_TRUE(program.waitForLine("withdrawn" + self));
    EXPECT_FALSE(service->unregisterCallbackEx(request("a b")).isOk());
    EXPECT_TRUE(service->unregisterCallback(first).isOk());
    EXPECT_FALSE(service->unregisterCallback(first).isOk());
    EXPECT_TRUE(service->registerCallbackEx(first, request("c", 43), &isAccepted).isOk());
    EXPECT_FALSE(isAccepted) << "a feature without events";
}

TEST(DemoServiceTest, StartsAndEndsCleanOrSaysWhyNot) {
    const std::string directory = std::getenv("DISPLAYENGINE_RUNTIME_DIR");
    const std::string shared = directory + "/shared";
    ChildProcess program(kService, {"--toggle", "3600:on"});
    EXPECT_TRUE(program.waitForLine("ready"));
    ASSERT_EQ(mkdir(shared.c_str(), 0700), 0);
    ASSERT_EQ(chmod(shared.c_str(), 0777), 0);
    const struct {
        Strings arguments;
        std::string directory;
        std::string why;
    } cases[] = {
        {{"--brightness", "3"}, directory, "--brightness"},
        {{"--min-width", "wide"}, directory, "--min-width"},
        {{"--short-config", "14"}, directory, "--short-config"},
        {{"--toggle", "1x:on"}, directory, "'1x:on' is not SECONDS:on"},
        {{"--toggle", "-1:on"}, directory, "'-1:on' is not SECONDS:on"},
        {{"--toggle", "1:maybe"}, directory, "'1:maybe' is not SECONDS:on"},
        {{}, directory, "another process has already registered"},
        {{}, shared, "the runtime directory belongs to another user or is open to others"},
    };
    for (const auto& c : cases) {
        const ProgramRun run(kService, c.arguments, {"DISPLAYENGINE_RUNTIME_DIR=" + c.directory});
        EXPECT_GT(run.code, 0) << c.why;
        EXPECT_NE(run.error.find(c.why), std::string::npos) << run.error;
        EXPECT_EQ(run.error.rfind("displayengine-service: ", 0), 0U) << run.error;
        EXPECT_EQ(run.error.find('\n'), run.error.size() - 1) << run.error;
    }
    std::filesystem::remove(shared);
    program.writeLine("quit");
    EXPECT_EQ(program.wait(), 0);
    for (const int signal : {SIGTERM, SIGINT}) {
        EXPECT_TRUE(std::filesystem::is_empty(directory));
        ChildProcess next(kService);
        EXPECT_TRUE(next.waitForLine("ready"));
        next.kill(signal);
        EXPECT_EQ(next.wait(), 0);
    }
}

}  // namespace
