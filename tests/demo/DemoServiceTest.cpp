// SPDX-License-Identifier: Apache-2.0
// The sample service as a program: its answers, its report, its registrations, and how it ends.
#include <binder/PersistableBundle.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utils/String16.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "aidl/IDisplayEngineService.h"
#include "client/ServiceConnection.h"
#include "support/ChildProcess.h"
#include "support/Recording.h"

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

const std::string kService = std::filesystem::path(ChildProcess::ownPath()).parent_path() /
                             "../demo/service/displayengine-service";

class DemoServiceTest : public ::testing::Test {
protected:
    DemoServiceTest() { android::ProcessState::self()->startThreadPool(); }

    void start(const std::string& arguments = "") {
        std::istringstream words(arguments);
        mProgram = std::make_unique<ChildProcess>(
            kService, Strings{std::istream_iterator<std::string>(words), {}});
        expectLine("ready");
        mService = checkDisplayEngineService();
        ASSERT_NE(mService, nullptr);
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
    start("--panel-name PANEL02");
    struct {
        int32_t feature, type, length;
        std::string content;  // of a buffer full of dots before
    } const effects[] = {
        {14, 0, 9, std::string("PANEL02\0\0", 9)},
        {14, 0, 6, "......"},
        {33, 14, 4, std::string("\x10\x02\0\0", 4)},
        {33, 14, 3, "..."},
        {33, 14, 5, "...."},
        {33, 14, -1, "...."},
        {25, 17, 1, "."},
    };
    int32_t result = 0;
    for (const auto& c : effects) {
        SCOPED_TRACE(testing::Message() << c.feature << " " << c.type << " " << c.length);
        std::vector<uint8_t> buffer(c.content.size(), '.');
        EXPECT_TRUE(mService->getEffect(c.feature, c.type, &buffer, c.length, &result).isOk());
        EXPECT_EQ(result, c.content[0] == '.' ? kRefused : 0);
        EXPECT_EQ(std::string(buffer.begin(), buffer.end()), c.content);
    }
    PersistableBundle rate;
    rate.putString(String16("FPS"), String16("60\n\x7fready"));
    std::vector<int32_t> alpha = {-1};
    EXPECT_TRUE(mService->setScene(20, 100, &result).isOk());
    EXPECT_TRUE(mService->setData(15, rate, &result).isOk());
    EXPECT_TRUE(mService->setData(24, entry("forceEnable", 2), &result).isOk());
    EXPECT_TRUE(mService->setEffect(33, 14, entry("Value", 7), &result).isOk());
    EXPECT_TRUE(mService->setEffect(33, 14, entry("Value", -1), &result).isOk());
    EXPECT_TRUE(mService->setEffect(25, 16, entry("Value", 2), &result).isOk());
    EXPECT_TRUE(mService->getEffectEx(33, 14, &alpha, 1, &result).isOk());
    EXPECT_EQ(alpha, std::vector<int32_t>{7});

    command("status");
    for (const std::string line :
         {"setData type=15 data={FPS=\"60\\x0a\\x7fready\"} result=0",
          "setData type=24 data={forceEnable=2} result=-22",
          "setEffect feature=25 type=16 data={Value=2} result=-22", "status scene=20 value=100",
          "status feature=33 type=14 value=7", "status frame-rate=\"60\\x0a\\x7fready\""}) {
        expectLine(line);
    }
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
    using Values = std::vector<int32_t>;
    start();
    EXPECT_EQ(configuration(26), (Values{1, 512, 512, 720, 1280, 30, 38, 2, 3, 40, 33, 5, 10000}));
    EXPECT_EQ(configuration(25), Values(13));
    command("enable off");
    expectLine("enable off clients=0");
    EXPECT_EQ(configuration(26)[0], 0);
    mProgram.reset();

    start(
        "--enable off --min-width 1 --min-height 2 --max-width 3 --max-height 4 --max-fps 5 "
        "--monitor-frames 6 --monitor-tolerance 7 --monitor-restore -8 --abort-ms 9 "
        "--overload-ms 10 --overload-count 11 --overload-period-ms 12");
    EXPECT_EQ(configuration(26), (Values{0, 1, 2, 3, 4, 5, 6, 7, -8, 9, 10, 11, 12}));
    mProgram.reset();

    start("--short-config 3");
    EXPECT_EQ(configuration(26), (Values{1, 512, 512}));
}

TEST_F(DemoServiceTest, AKeyHasOneCallbackAndItIsToldTheState) {
    start("--toggle 0.02:off --toggle 0:on");
    expectLine("enable on clients=0");
    expectLine("enable off clients=0");
    const std::string self = " pid=" + std::to_string(getpid());
    const Strings off = {"onEventWithData 3 { Enable=false }"};
    const sp<RecordingCallback> first = new RecordingCallback;
    const sp<RecordingCallback> second = new RecordingCallback;
    bool accepted = false;
    EXPECT_TRUE(mService->registerCallbackEx(first, registration("a b"), &accepted).isOk());
    EXPECT_TRUE(accepted);
    expectLine("registered key=a b" + self);
    EXPECT_EQ(first->take(1), off);

    EXPECT_TRUE(mService->registerCallbackEx(second, registration("a b"), &accepted).isOk());
    expectLine("replaced key=a b" + self);
    EXPECT_EQ(second->take(1), off);
    command("enable on");
    expectLine("enable on clients=1");
    EXPECT_EQ(second->take(1), Strings{"onEventWithData 3 { Enable=true }"});

    EXPECT_TRUE(mService->registerCallback(first).isOk());
    EXPECT_TRUE(mService->registerCallback(first).isOk());
    command("enable off");
    expectLine("enable off clients=2");
    EXPECT_EQ(first->take(1), off);
    EXPECT_TRUE(mService->unregisterCallback(first).isOk());
    EXPECT_TRUE(mService->unregisterCallbackEx(registration("a b")).isOk());
    expectLine("withdrawn key=a b" + self);

    EXPECT_TRUE(mService->registerCallbackEx(first, registration("c", 43), &accepted).isOk());
    EXPECT_FALSE(accepted);
    for (const Status& status :
         {mService->registerCallbackEx(first, entry("Feature", 44), &accepted),
          mService->unregisterCallback(first), mService->unregisterCallbackEx(registration("c"))}) {
        EXPECT_EQ(status.exceptionCode(), Status::EX_ILLEGAL_ARGUMENT);
    }
}

TEST_F(DemoServiceTest, EveryWayToStopLeavesNothingBehind) {
    for (const int how : {SIGTERM, SIGINT, 0}) {
        SCOPED_TRACE(how);
        start("--toggle 3600:on");
        how == 0 ? command("quit") : mProgram->kill(how);
        EXPECT_EQ(mProgram->wait(), 0);
        EXPECT_TRUE(std::filesystem::is_empty(mDirectory));
    }
}

TEST_F(DemoServiceTest, ABadStartSaysWhyAndFails) {
    const std::string shared = mDirectory + "/shared";
    ASSERT_EQ(mkdir(shared.c_str(), 0700), 0);
    ASSERT_EQ(chmod(shared.c_str(), 0777), 0);
    start();
    struct {
        Strings arguments;
        std::string why;
        std::string directory;
    } const cases[] = {
        {{"--brightness", "3"}, "--brightness", mDirectory},
        {{"--min-width", "wide"}, "--min-width", mDirectory},
        {{"--short-config", "14"}, "--short-config", mDirectory},
        {{"--toggle", "1x:on"}, "'1x:on' is not SECONDS:on", mDirectory},
        {{"--toggle", "-1:on"}, "'-1:on' is not SECONDS:on", mDirectory},
        {{"--toggle", "1:maybe"}, "'1:maybe' is not SECONDS:on", mDirectory},
        {{}, "another process has already registered", mDirectory},
        {{}, "the runtime directory belongs to another user or is open to others", shared},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.why);
        ChildProcess program(kService, c.arguments, {"DISPLAYENGINE_RUNTIME_DIR=" + c.directory});
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
