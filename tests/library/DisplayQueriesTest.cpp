// SPDX-License-Identifier: Apache-2.0
// The display queries and settings, each with a service that answers, answers with errors or too
// little, refuses by an exception, has died, or was never there.
#include <binder/IServiceManager.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <thread>

#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/ProtocolPeer.h"
#include "support/ProtocolPeerObjects.h"

using android::sp;
using android::String16;
using android::binder::Status;
using protocol::call;
using Manager = DisplayEngineManager;
using Texts = std::vector<std::string>;

namespace {

constexpr char kServiceArgument[] = "--service";
constexpr char kName[] = "DisplayEngineService";

/** The service's state, and so which of a method's outcomes holds. */
enum Mode { ANSWERS, ERRORS, REFUSES, NONE, SHORT };

class QueriedService : public protocol::RecordingService {
public:
    Mode mode = ANSWERS;

    Status getSupported(int32_t feature, int32_t* result) override {
        return answer(call("getSupported", feature), result, mode == ERRORS ? -3 : 1);
    }
    Status setScene(int32_t scene, int32_t value, int32_t* result) override {
        return answer(call("setScene", scene, value), result, mode == ERRORS ? 5 : 7);
    }
    Status setData(int32_t type, const Bundle& data, int32_t* result) override {
        const auto size = static_cast<int32_t>(data.size());
        return answer(call("setData", type, data, size), result, mode == ERRORS ? 5 : 7);
    }
    Status getEffect(int32_t feature, int32_t type, std::vector<uint8_t>* buffer, int32_t length,
                     int32_t* result) override {
        const auto size = static_cast<int32_t>(buffer->size());
        const std::map<int32_t, std::string> answers = {
            {14, "  PANEL01"}, {33, std::string("\x10\x02\xff\xff", 4)}, {25, "\x80"}};
        const std::string& text = answers.at(feature);
        std::copy(text.begin(), text.end(), buffer->begin());
        buffer->resize(mode != SHORT ? buffer->size() : size == 255 ? 0 : buffer->size() - 1);
        return answer(call("getEffect", feature, type, size, length), result,
                      mode == ERRORS ? 5 : 0);
    }
    Status registerCallback(const Callback&) override { return answer("registerCallback"); }
    Status unregisterCallback(const Callback&) override { return answer("unregisterCallback"); }

private:
    Status answer(const std::string& call, int32_t* result = nullptr, int32_t value = 0) {
        journal.add(call);
        if (mode == REFUSES) {
            return Status::fromExceptionCode(Status::EX_SECURITY);
        }
        return result != nullptr ? (*result = value, Status::ok()) : Status::ok();
    }
};

std::string gPanelName;

/** A method with its outcome in each mode. */
struct Method {
    const char* name;
    std::function<int(Manager&)> call;
    const char* calls; /**< What the service sees, each with a ";" behind. */
    int answer, error, refusal, missing;
    // What it leaves in the log in each mode, if anything.
    std::string refused = "";
    std::string failed = "";
    std::string answered = "";
    std::string absent = "Failed to get displayengineserver binder!";

    int result(Mode mode) const {
        return mode == ANSWERS ? answer : mode == ERRORS ? error : mode == NONE ? missing : refusal;
    }
    std::string message(Mode mode) const {
        return mode == ANSWERS  ? answered
               : mode == ERRORS ? failed
               : mode == NONE   ? absent
                                : refused;
    }
};

int getName(Manager& it) {
    gPanelName = "untouched";
    return it.getPanelName(gPanelName);
}

const sp<protocol::RecordingCallback> kCallback = new protocol::RecordingCallback;
const std::string kNoService = "service is nullptr!";
const std::string kClosed = "RgLed closed. mSupportRgLedPrinted=1";
const std::string kNoName = "getPanelName() failded ret= ";
const std::string kNoFolding = "Failed to getSupported(DE_FEATURE_FOLDINGCOMPENSATION)";
const std::string kNoAlpha =
    "Failed to getEffect(DE_FEATURE_FOLDINGCOMPENSATION, DE_DATA_TYPE_ALPHA)";
const std::string kNoCwb = "Failed to setData(DE_DATA_TYPE_CWB_FORCE_ENABLE, 1)!";
const std::string kBadCwb = "input enable should be 1 or 0, but the real input value is ";

const Method kMethods[] = {
    {"displayengineSetBrightness", [](auto& it) { return it.displayengineSetBrightness(100); },
     "getSupported 19;setScene 20 100;", 1, -3, 0, -1, kClosed, kClosed, "mSupportRgLed=1",
     kNoService},
    {"displayengineSetBrightness", [](auto& it) { return it.displayengineSetBrightness(-1); }, "",
     -1, -1, -1, -1, "INVALID BrightnessLevel=-1.", "INVALID BrightnessLevel=-1.",
     "INVALID BrightnessLevel=-1.", "INVALID BrightnessLevel=-1."},
    {"getPanelName", getName, "getEffect 14 0 255 255;", 0, 5, -1, -1, kNoName + "-1",
     kNoName + "5", "", kNoService},
    {"getReadingSupport", &Manager::getReadingSupport, "getSupported 26;", 1, -3, 0, 0},
    {"getGlobalReadingSupport", &Manager::getGlobalReadingSupport, "getSupported 34;", 1, -3, 0, 0},
    {"getFoldingCompensationSupported", &Manager::getFoldingCompensationSupported,
     "getSupported 33;", 1, -3, 0, 0, kNoFolding},
    {"getFoldingCompensationAlpha", &Manager::getFoldingCompensationAlpha, "getEffect 33 14 4 4;",
     -65008, 1023, 1023, 1023, kNoAlpha, kNoAlpha + ", return 5", "alpha=-65008"},
    {"getLocalHBMSupport", &Manager::getLocalHBMSupport, "getEffect 25 16 1 1;", 1, 0, 0, 0,
     "Displayengineserver binder failed!"},
    {"setScene", [](auto& it) { return it.setScene(3, -4); }, "setScene 3 -4;", 7, 5, -22, -22,
     "Failed to setScene(3, -4)!"},
    {"setFrameRate", [](auto& it) { return it.setFrameRate(std::string("60\0x", 4)); },
     "setData 15 FPS=60 1;", 7, 5, -22, -22, "Failed to setData(DE_DATA_TYPE_FRAMERATE, 60)!"},
    {"registerCallback", [](auto& it) { return it.registerCallback(kCallback), 0; },
     "registerCallback;", 0, 0, 0, 0, "Failed to registerCallback()"},
    {"unregisterCallback", [](auto& it) { return it.unregisterCallback(kCallback), 0; },
     "unregisterCallback;", 0, 0, 0, 0, "Failed to unregisterCallback()"},
    {"setCwbForceEnable", [](auto&) { return setCwbForceEnable(1); }, "setData 24 forceEnable=1 1;",
     0, 0, -22, -22, kNoCwb, "input enable is 1", "input enable is 1"},
    {"setCwbForceEnable", [](auto&) { return setCwbForceEnable(0); }, "setData 24 forceEnable=0 1;",
     0, 0, -22, -22, "Failed to setData(DE_DATA_TYPE_CWB_FORCE_ENABLE, 0)!", "input enable is 0",
     "input enable is 0"},
    {"setCwbForceEnable", [](auto&) { return setCwbForceEnable(2); }, "", -22, -22, -22, -22,
     kBadCwb + "2", kBadCwb + "2", kBadCwb + "2"},
    {"setCwbForceEnable", [](auto&) { return setCwbForceEnable(-1); }, "", -22, -22, -22, -22,
     kBadCwb + "-1", kBadCwb + "-1", kBadCwb + "-1"},
};

class DisplayQueries : public testing::Test {
protected:
    void install(Mode mode) {
        service->mode = mode;
        EXPECT_EQ(android::defaultServiceManager()->addService(String16(kName), service),
                  android::OK);
    }
    /** A manager of a client that wants to read the log. */
    static sp<Manager> newManager() {
        const sp<Manager> made = new Manager;
        g_delogdEnable = g_delogiEnable = true;  // It has switched them off.
        return made;
    }
    /** Calls the method: its result, and its last message or none, are those of the mode. */
    void expect(const Method& method, Manager& manager, Mode mode) {
        log.take();
        EXPECT_EQ(method.call(manager), method.result(mode));
        const std::string message = method.message(mode);
        const std::string line = log.last("DE N DEM ");
        EXPECT_EQ(line.substr(std::min(line.size(), size_t{2})),
                  message.empty() ? "" : std::string("DE N DEM ") + method.name + ":#: " + message);
    }
    std::string takeCalls() {
        std::string calls;
        for (const std::string& call : service->journal.take()) {
            calls += call + ";";
        }
        return calls;
    }

    LogCapture log;
    const sp<QueriedService> service = new QueriedService;
};

TEST_F(DisplayQueries, PassAnswersAndErrorsOnAndMeetARefusalWithTheirFailureValues) {
    for (const Mode mode : {ANSWERS, ERRORS, REFUSES}) {
        install(mode);
        for (const Method& method : kMethods) {
            SCOPED_TRACE(method.name);
            expect(method, *newManager(), mode);
            const std::string calls = takeCalls();
            // Without the feature the brightness is not sent.
            EXPECT_EQ(calls, mode != ANSWERS && calls == "getSupported 19;" ? calls : method.calls);
        }
        EXPECT_EQ(gPanelName, mode == ANSWERS ? "PANEL01" : "untouched");
    }
}

TEST_F(DisplayQueries, ReadNothingBehindAShortReply) {
    install(SHORT);
    const sp<Manager> manager = newManager();
    EXPECT_EQ(manager->getFoldingCompensationAlpha(), 1023);
    EXPECT_EQ(manager->getLocalHBMSupport(), 0);
    EXPECT_EQ(manager->getPanelName(gPanelName), 0);
    EXPECT_EQ(gPanelName, "");
}

TEST_F(DisplayQueries, AnswerADeadServiceAndNoneWithTheirFailureValues) {
    const sp<Manager> manager = newManager();
    ChildProcess program(ChildProcess::ownPath(), {kServiceArgument});
    ASSERT_TRUE(program.waitForLine("ready"));
    ASSERT_NE(manager->getService(), nullptr);
    program.kill();
    program.wait();
    // Without a service all at once, since each waits some seconds for one that is not yet up.
    constexpr size_t kCount = std::size(kMethods);
    int results[kCount];
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kCount; ++i) {
        threads.emplace_back([&, i] { results[i] = kMethods[i].call(*newManager()); });
    }
    for (size_t i = 0; i < kCount; ++i) {
        SCOPED_TRACE(kMethods[i].name);
        threads[i].join();
        EXPECT_EQ(results[i], kMethods[i].missing);
        EXPECT_GE(
            log.count(std::string("6 DE N DEM ") + kMethods[i].name + ":#: " + kMethods[i].absent),
            1U);
    }
    for (const Method& method : kMethods) {
        SCOPED_TRACE(method.name);
        // Some ask a service that is looked up anew.
        const std::string name = method.name;
        if (name != "getPanelName" && name != "setCwbForceEnable") {
            expect(method, *manager, REFUSES);
        }
    }
}

TEST_F(DisplayQueries, SendABrightnessOnce) {
    install(ANSWERS);
    sp<Manager> manager = newManager();
    for (const int level : {100, 100, 101, 0, 0}) {
        EXPECT_EQ(manager->displayengineSetBrightness(level), 1);
    }
    EXPECT_EQ(takeCalls(), "getSupported 19;setScene 20 100;setScene 20 101;setScene 20 0;");

    service->mode = REFUSES;
    manager = newManager();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(manager->displayengineSetBrightness(100), 0);
    }
    EXPECT_EQ(log.count(kClosed), 1U);
    EXPECT_EQ(log.count("mSupportRgLed=0"), 1U);
    EXPECT_EQ(takeCalls(), "getSupported 19;");
}

}  // namespace

int main(int argc, char** argv) {
    const auto serve = [](const std::string&) {
        return protocol::serve({{kName, new QueriedService}});
    };
    return protocol::testMain(argc, argv, {{kServiceArgument, serve}});
}
