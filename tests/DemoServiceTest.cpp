// The sample service as a program: its answers, its report, its registrations, and how it ends.
#include <binder/IPCThreadState.h>
#include <binder/PersistableBundle.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utils/String16.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "aidl/IDisplayEngineService.h"
#include "client/ServiceConnection.h"
#include "support/ChildProcess.h"
#include "support/ProtocolPeerObjects.h"

using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using com::tivora::displayengine::IDisplayEngineService;
using protocol::RecordingCallback;

namespace {

using Strings = std::vector<std::string>;
constexpr int32_t kRefused = -22;

PersistableBundle registration(const std::string& key, int32_t feature = 44) {
    PersistableBundle data;
    data.putString(String16("Key"), String16(key.c_str()));
    data.putInt(String16("Feature"), feature);
    return data;
}

PersistableBundle entry(const char* key, int32_t value) {
    PersistableBundle data;
    data.putInt(String16(key), value);
    return data;
}

std::string servicePath() {
    const std::filesystem::path tests =
        std::filesystem::path(ChildProcess::ownPath()).parent_path();
    return (tests.parent_path() / "demo/service/displayengine-service").string();
}

class DemoServiceTest : public ::testing::Test {
protected:
    DemoServiceTest() { android::ProcessState::self()->startThreadPool(); }

    void start(const Strings& arguments) {
        mProgram = std::make_unique<ChildProcess>(servicePath(), arguments);
        expectLine("ready");
        mService = checkDisplayEngineService();
        ASSERT_NE(mService, nullptr);
    }
    void stop() {
        mProgram->kill(SIGTERM);
        EXPECT_EQ(mProgram->wait(), 0);
    }
    void command(const std::string& line) { mProgram->writeLine(line); }
    void expectLine(const std::string& line) {
        EXPECT_TRUE(mProgram->waitForLine(line)) << "not reported: " << line;
    }

    const std::string mDirectory = getenv("DISPLAYENGINE_RUNTIME_DIR");
    std::unique_ptr<ChildProcess> mProgram;
    sp<IDisplayEngineService> mService;
};

TEST_F(DemoServiceTest, FeaturesAreAnsweredAndKeepWhatIsSet) {
    start({"--panel-name", "PANEL02"});
    for (const int32_t feature : {14, 19, 25, 26, 33, 34, 44, 45}) {
        int32_t result = -1;
        EXPECT_TRUE(mService->getSupported(feature, &result).isOk());
        EXPECT_EQ(result, feature == 45 ? 0 : 1) << feature;
    }
    struct {
        int32_t feature;
        int32_t type;
        size_t size;
        int32_t length;
        int32_t result;
        std::string begin;
    } const effects[] = {
        {14, 0, 255, 255, 0, std::string("PANEL02\0\0", 9)},
        {14, 0, 6, 6, kRefused, "......"},
        {33, 14, 4, 4, 0, std::string("\x10\x02\0\0", 4)},
        {33, 14, 4, 3, kRefused, "...."},
        {33, 14, 4, 5, kRefused, "...."},
        {33, 14, 4, -1, kRefused, "...."},
        {25, 16, 1, 1, 0, "\x01"},
        {25, 17, 1, 1, kRefused, "."},
    };
    for (const auto& c : effects) {
        SCOPED_TRACE(testing::Message() << c.feature << " " << c.type << " " << c.length);
        std::vector<uint8_t> buffer(c.size, '.');
        int32_t result = -1;
        EXPECT_TRUE(mService->getEffect(c.feature, c.type, &buffer, c.length, &result).isOk());
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(std::string(buffer.begin(), buffer.end()).substr(0, c.begin.size()), c.begin);
    }
    int32_t results[7] = {};
    PersistableBundle rate;
    rate.putString(String16("FPS"), String16("60\n\x7fready"));
    EXPECT_TRUE(mService->setScene(20, 100, &results[0]).isOk());
    EXPECT_TRUE(mService->setScene(20, -1, &results[1]).isOk());
    EXPECT_TRUE(mService->setData(15, rate, &results[2]).isOk());
    EXPECT_TRUE(mService->setData(24, entry("forceEnable", 2), &results[3]).isOk());
    EXPECT_TRUE(mService->setEffect(33, 14, entry("Value", 7), &results[4]).isOk());
    EXPECT_TRUE(mService->setEffect(25, 16, entry("Value", 2), &results[5]).isOk());
    EXPECT_TRUE(mService->setEffect(33, 14, entry("Value", -1), &results[6]).isOk());
    EXPECT_EQ(std::vector<int32_t>(results, results + 7),
              (std::vector<int32_t>{0, kRefused, 0, kRefused, 0, kRefused, kRefused}));
    std::vector<int32_t> alpha = {-1};
    EXPECT_TRUE(mService->getEffectEx(33, 14, &alpha, 1, results).isOk());
    EXPECT_EQ(alpha, std::vector<int32_t>{7});

    command("status");
    expectLine("setScene scene=20 value=100 result=0");
    expectLine("setData type=15 data={FPS=\"60\\x0a\\x7fready\"} result=0");
    expectLine("setEffect feature=25 type=16 data={Value=2} result=-22");
    expectLine("status enable=on");
    expectLine("status scene=20 value=100");
    expectLine("status feature=33 type=14 value=7");
    expectLine("status frame-rate=\"60\\x0a\\x7fready\"");
}

TEST_F(DemoServiceTest, TheConfigurationFollowsTheOptionsAndTheEnableState) {
    const auto configuration = [this](int32_t type) {
        PersistableBundle data = registration("client");
        data.putInt(String16("Type"), type);
        std::vector<int32_t> values(13);
        int32_t result = 0;
        EXPECT_TRUE(mService->getEffectExByData(44, data, &values, &result).isOk());
        EXPECT_EQ(result, type == 26 ? 0 : kRefused);
        return values;
    };
    start({});
    EXPECT_EQ(configuration(26),
              (std::vector<int32_t>{1, 512, 512, 720, 1280, 30, 38, 2, 3, 40, 33, 5, 10000}));
    EXPECT_EQ(configuration(25), std::vector<int32_t>(13));
    command("enable off");
    expectLine("enable off clients=0");
    EXPECT_EQ(configuration(26)[0], 0);
    stop();

    start({"--enable",
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
           "12",
           "--supported",
           "2"});
    EXPECT_EQ(configuration(26), (std::vector<int32_t>{0, 1, 2, 3, 4, 5, 6, 7, -8, 9, 10, 11, 12}));
    int32_t supported = 0;
    EXPECT_TRUE(mService->getSupported(44, &supported).isOk());
    EXPECT_EQ(supported, 2);
    stop();

    start({"--short-config", "3"});
    EXPECT_EQ(configuration(26), (std::vector<int32_t>{1, 512, 512}));
}

TEST_F(DemoServiceTest, AKeyHasOneCallbackAndItIsToldTheState) {
    start({"--toggle", "0.02:off", "--toggle", "0:on"});
    expectLine("enable on clients=0");
    expectLine("enable off clients=0");
    const std::string self = " pid=" + std::to_string(getpid());
    const sp<RecordingCallback> first = new RecordingCallback;
    const sp<RecordingCallback> second = new RecordingCallback;
    bool accepted = false;
    EXPECT_TRUE(mService->registerCallbackEx(first, registration("a b"), &accepted).isOk());
    EXPECT_TRUE(accepted);
    expectLine("registered key=a b" + self);
    EXPECT_EQ(first->take(1), Strings{"onEventWithData 3 { Enable=false }"});

    EXPECT_TRUE(mService->registerCallbackEx(second, registration("a b"), &accepted).isOk());
    expectLine("replaced key=a b" + self);
    command("enable on");
    expectLine("enable on clients=1");
    EXPECT_EQ(second->take(2),
              (Strings{"onEventWithData 3 { Enable=false }", "onEventWithData 3 { Enable=true }"}));

    EXPECT_TRUE(mService->registerCallback(first).isOk());
    EXPECT_TRUE(mService->registerCallback(first).isOk());
    expectLine("registered" + self);
    command("enable off");
    expectLine("enable off clients=2");
    EXPECT_EQ(first->take(1), Strings{"onEventWithData 3 { Enable=false }"});
    EXPECT_TRUE(mService->unregisterCallback(first).isOk());
    expectLine("withdrawn" + self);
    EXPECT_EQ(mService->unregisterCallback(first).exceptionCode(), Status::EX_ILLEGAL_ARGUMENT);

    EXPECT_TRUE(mService->registerCallbackEx(first, registration("c", 43), &accepted).isOk());
    EXPECT_FALSE(accepted);
    EXPECT_EQ(mService->registerCallbackEx(first, entry("Feature", 44), &accepted).exceptionCode(),
              Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(mService->unregisterCallbackEx(registration("c")).exceptionCode(),
              Status::EX_ILLEGAL_ARGUMENT);
    EXPECT_TRUE(mService->unregisterCallbackEx(registration("a b")).isOk());
    expectLine("withdrawn key=a b" + self);
}

constexpr char kClientArgument[] = "--client";

/// Another process: registers under `key` and stays until it is killed.
int runClient(const char* key) {
    android::ProcessState::self()->startThreadPool();
    bool accepted = false;
    const sp<IDisplayEngineService> service = checkDisplayEngineService();
    if (service == nullptr ||
        !service->registerCallbackEx(new RecordingCallback, registration(key), &accepted).isOk()) {
        return 1;
    }
    android::IPCThreadState::self()->joinThreadPool();
    return 0;
}

TEST_F(DemoServiceTest, AClientThatDiesIsDropped) {
    start({});
    ChildProcess client(ChildProcess::ownPath(), {kClientArgument, "mortal"});
    const std::string name = "key=mortal pid=" + std::to_string(client.pid());
    expectLine("registered " + name);
    // Nobody else withdraws what it has registered.
    EXPECT_FALSE(mService->unregisterCallbackEx(registration("mortal")).isOk());
    client.kill();
    expectLine("died " + name);
    command("enable off");
    expectLine("enable off clients=0");
}

TEST_F(DemoServiceTest, EveryWayToStopLeavesNothingBehind) {
    for (const int how : {SIGTERM, SIGINT, 0}) {
        SCOPED_TRACE(how);
        start({"--toggle", "3600:on"});
        if (how == 0) {
            command("quit");
        } else {
            mProgram->kill(how);
        }
        EXPECT_EQ(mProgram->wait(), 0);
        EXPECT_TRUE(std::filesystem::is_empty(mDirectory));
    }
}

TEST_F(DemoServiceTest, ABadStartSaysWhyAndFails) {
    const std::string shared = mDirectory + "/shared";
    ASSERT_EQ(mkdir(shared.c_str(), 0700), 0);
    ASSERT_EQ(chmod(shared.c_str(), 0777), 0);
    start({});
    struct {
        Strings arguments;
        std::string directory;
        const char* why;
    } const cases[] = {
        {{"--brightness", "3"}, mDirectory, "--brightness"},
        {{"--min-width", "wide"}, mDirectory, "--min-width"},
        {{"--short-config", "14"}, mDirectory, "--short-config"},
        {{"--toggle", "1:maybe"}, mDirectory, "'1:maybe' is not SECONDS:on"},
        {{"--toggle", "1x:on"}, mDirectory, "'1x:on' is not SECONDS:on"},
        {{"--toggle", "-1:on"}, mDirectory, "'-1:on' is not SECONDS:on"},
        {{}, mDirectory, "another process has already registered"},
        {{}, shared, "the runtime directory belongs to another user or is open to others"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        ChildProcess program(servicePath(), c.arguments,
                             {"DISPLAYENGINE_RUNTIME_DIR=" + c.directory});
        EXPECT_NE(program.wait(), 0);
        const std::string error = program.standardError();
        EXPECT_NE(error.find(c.why), std::string::npos) << error;
        EXPECT_EQ(error.rfind("displayengine-service: ", 0), 0U) << error;
        EXPECT_EQ(std::count(error.begin(), error.end(), '\n'), 1) << error;
    }
    int32_t result = 0;
    EXPECT_TRUE(mService->getSupported(44, &result).isOk()) << "the first service has suffered";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], kClientArgument) == 0) {
        return runClient(argv[2]);
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
