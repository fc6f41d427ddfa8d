// SPDX-License-Identifier: Apache-2.0
// The display queries and settings, each with a service that answers, answers with errors or too
// little, refuses by an exception, or is not there; and how the service is found.
#include <binder/IServiceManager.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <thread>

#include "aisr/AisrEngine.h"
#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/LogCapture.h"
#include "support/Recording.h"

using android::sp;
using Manager = DisplayEngineManager;

namespace {

/** The service's state, and so which of a method's outcomes holds. */
enum Mode { ANSWERS, ERRORS, REFUSES, NONE, SHORT };

class QueriedService : public protocol::RecordingService {
public:
    Mode mode = ANSWERS;

protected:
    Status respond(const std::string& call, const protocol::Answer& to) override {
        if (mode == REFUSES) {
            return Status::fromExceptionCode(Status::EX_SECURITY);
        }
        const std::string name = call.substr(0, call.find(' '));
        if (name == "getSupported") {
            *to.result = mode == ERRORS ? -3 : 1;
        } else if (name == "getEffect") {
            *to.result = mode == ERRORS ? 5 : 0;
            setBytes(call, to.bytes);
        } else if (to.result != nullptr) {
            *to.result = mode == ERRORS ? 5 : 7;
        }
        return Status::ok();
    }

private:
    void setBytes(const std::string& call, std::vector<uint8_t>* bytes) const {
        const std::map<std::string, std::string> answers = {
            {"getEffect 14 0 [255] 255", "  PANEL01" + std::string(246, '\0')},
            {"getEffect 33 14 [ 0 0 0 0 ] 4", std::string("\x10\x02\xff\xff")},
            {"getEffect 25 16 [ 0 ] 1", "\x80"}};
        const std::string& answer = answers.at(call);
        const auto size = static_cast<ptrdiff_t>(mode == SHORT ? answer.size() - 1 : answer.size());
        bytes->assign(answer.begin(), answer.begin() + size);
    }
};

std::string gPanelName;

/** What a method returns and its last message, if any. */
struct Outcome {
    int result;
    std::string message = "";
};

struct Method {
    const char* name;
    std::function<int(Manager&)> call;
    const char* calls; /**< What the service sees, each with a ";" behind. */
    Outcome outcomes[4];
};

/** A method and its outcomes when the service answers, errs, refuses, and is not there. */
Method method(const char* name, const std::function<int(Manager&)>& call, const char* calls,
              const Outcome& answered, const Outcome& failed, const Outcome& refused,
              const Outcome& missing) {
    return {name, call, calls, {answered, failed, refused, missing}};
}

int getName(Manager& it) {
    gPanelName = "untouched";
    return it.getPanelName(gPanelName);
}

const sp<protocol::RecordingCallback> kCallback = new protocol::RecordingCallback;

int registerIt(Manager& it) {
    it.registerCallback(kCallback);
    return 0;
}

int unregisterIt(Manager& it) {
    it.unregisterCallback(kCallback);
    return 0;
}

const std::string kNoBinder = "Failed to get displayengineserver binder!";
const std::string kNoService = "service is nullptr!";
const std::string kClosed = "RgLed closed. mSupportRgLedPrinted=1";
const std::string kNoName = "getPanelName() failded ret= ";
const std::string kNoFolding = "Failed to getSupported(DE_FEATURE_FOLDINGCOMPENSATION)";
const std::string kNoAlpha =
    "Failed to getEffect(DE_FEATURE_FOLDINGCOMPENSATION, DE_DATA_TYPE_ALPHA)";
const std::string kNoCwb = "Failed to setData(DE_DATA_TYPE_CWB_FORCE_ENABLE, ";
const std::string kBadCwb = "input enable should be 1 or 0, but the real input value is ";

const Method kMethods[] = {
    method("displayengineSetBrightness",
           [](auto& it) { return it.displayengineSetBrightness(100); },
           "getSupported 19;setScene 20 100;", {1, "mSupportRgLed=1"}, {-3, kClosed}, {0, kClosed},
           {-1, kNoService}),
    method("getPanelName", getName, "getEffect 14 0 [255] 255;", {0}, {5, kNoName + "5"},
           {-1, kNoName + "-1"}, {-1, kNoService}),
    method("getReadingSupport", &Manager::getReadingSupport, "getSupported 26;", {1}, {-3}, {0},
           {0, kNoBinder}),
    method("getGlobalReadingSupport", &Manager::getGlobalReadingSupport, "getSupported 34;", {1},
           {-3}, {0}, {0, kNoBinder}),
    method("getFoldingCompensationSupported", &Manager::getFoldingCompensationSupported,
           "getSupported 33;", {1}, {-3}, {0, kNoFolding}, {0, kNoBinder}),
    method("getFoldingCompensationAlpha", &Manager::getFoldingCompensationAlpha,
           "getEffect 33 14 [ 0 0 0 0 ] 4;", {-65008, "alpha=-65008"},
           {1023, kNoAlpha + ", return 5"}, {1023, kNoAlpha}, {1023, kNoBinder}),
    method("getLocalHBMSupport", &Manager::getLocalHBMSupport, "getEffect 25 16 [ 0 ] 1;", {1}, {0},
           {0, "Displayengineserver binder failed!"}, {0, kNoBinder}),
    method("setScene", [](auto& it) { return it.setScene(3, -4); }, "setScene 3 -4;", {7}, {5},
           {-22, "Failed to setScene(3, -4)!"}, {-22, kNoBinder}),
    method("setFrameRate", [](auto& it) { return it.setFrameRate(std::string("60\0x", 4)); },
           "setData 15 FPS=60;", {7}, {5}, {-22, "Failed to setData(DE_DATA_TYPE_FRAMERATE, 60)!"},
           {-22, kNoBinder}),
    method("registerCallback", registerIt, "registerCallback told;", {0}, {0},
           {0, "Failed to registerCallback()"}, {0, kNoBinder}),
    method("unregisterCallback", unregisterIt, "unregisterCallback;", {0}, {0},
           {0, "Failed to unregisterCallback()"}, {0, kNoBinder}),
    method("setCwbForceEnable", [](auto&) { return setCwbForceEnable(1); },
           "setData 24 forceEnable=1;", {0, "input enable is 1"}, {0, "input enable is 1"},
           {-22, kNoCwb + "1)!"}, {-22, kNoBinder}),
    method("setCwbForceEnable", [](auto&) { return setCwbForceEnable(0); },
           "setData 24 forceEnable=0;", {0, "input enable is 0"}, {0, "input enable is 0"},
           {-22, kNoCwb + "0)!"}, {-22, kNoBinder}),
    method("setCwbForceEnable", [](auto&) { return setCwbForceEnable(2); }, "",
           {-22, kBadCwb + "2"}, {-22, kBadCwb + "2"}, {-22, kBadCwb + "2"}, {-22, kNoBinder}),
};

class DisplayQueriesTest : public testing::Test {
protected:
    void install(Mode mode) {
        service->mode = mode;
        add(service);
    }
    static void add(const sp<QueriedService>& added) {
        EXPECT_EQ(android::defaultServiceManager()->addService(
                      android::String16("DisplayEngineService"), added),
                  android::OK);
    }
    /** A manager of a client that wants to read the log. */
    static sp<Manager> newManager() {
        const sp<Manager> made = new Manager;
        g_delogdEnable = g_delogiEnable = true;  // It has switched them off.
        return made;
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

TEST_F(DisplayQueriesTest, PassAnswersAndErrorsOnAndMeetOtherRepliesWithTheirFailureValues) {
    for (const Mode mode : {ANSWERS, ERRORS, REFUSES}) {
        install(mode);
        for (const Method& method : kMethods) {
            SCOPED_TRACE(method.name);
            const Outcome& expected = method.outcomes[mode];
            const std::string message = std::string("DE N DEM ") + method.name + ":#: ";
            const sp<Manager> manager = newManager();
            log.take();
            EXPECT_EQ(method.call(*manager), expected.result);
            const std::string last = log.last("DE N DEM ");
            EXPECT_EQ(last.empty() ? "" : last.substr(2),
                      expected.message.empty() ? "" : message + expected.message);
            const std::string calls = takeCalls();
            // Without the feature the brightness is not sent.
            EXPECT_EQ(calls, mode != ANSWERS && calls == "getSupported 19;" ? calls : method.calls);
        }
        EXPECT_EQ(gPanelName, mode == ANSWERS ? "PANEL01" : "untouched");
    }
    service->mode = SHORT;
    const sp<Manager> manager = newManager();
    EXPECT_EQ(manager->getFoldingCompensationAlpha(), 1023);
    EXPECT_EQ(manager->getLocalHBMSupport(), 0);
    EXPECT_EQ(manager->getPanelName(gPanelName), 0);
    EXPECT_EQ(gPanelName, "PANEL01") << "the padding was cut off";
}

TEST_F(DisplayQueriesTest, AnswerWithTheirFailureValuesWithoutAService) {
    // All at once, since each waits some seconds for a service that is not yet up.
    constexpr size_t kCount = std::size(kMethods);
    int results[kCount];
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kCount; ++i) {
        threads.emplace_back([&, i] { results[i] = kMethods[i].call(*newManager()); });
    }
    for (size_t i = 0; i < kCount; ++i) {
        SCOPED_TRACE(kMethods[i].name);
        threads[i].join();
        const Outcome& expected = kMethods[i].outcomes[NONE];
        EXPECT_EQ(results[i], expected.result);
        EXPECT_TRUE(log.contains(std::string("6 DE N DEM ") + kMethods[i].name +
                                 ":#: " + expected.message));
    }
}

TEST_F(DisplayQueriesTest, SendABrightnessOnce) {
    install(ANSWERS);
    sp<Manager> manager = newManager();
    for (const int level : {100, 100, 101, 0, 0}) {
        EXPECT_EQ(manager->displayengineSetBrightness(level), 1);
    }
    EXPECT_EQ(manager->displayengineSetBrightness(-1), -1);
    EXPECT_EQ(log.last("INVALID"),
              "6 DE N DEM displayengineSetBrightness:#: INVALID BrightnessLevel=-1.");
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

TEST_F(DisplayQueriesTest, LookForTheServiceUntilItIsFoundAndThenNeverMore) {
    const sp<Manager> manager = newManager();
    EXPECT_EQ(checkDisplayEngineService(), nullptr);
    EXPECT_EQ(log.lines().back(), "6 DE N DEM checkDisplayEngineService:#: binder is nullptr!");
    EXPECT_EQ(manager->getService(), nullptr) << "after the service manager's wait";
    EXPECT_EQ(log.lines().back(), "6 DE N DEM getDisplayEngineService:#: binder is nullptr!");
    const std::string noLookup = ":#: Failed to get displayengineserver binder(";
    EXPECT_FALSE(AisrEngine().initialize());
    EXPECT_TRUE(log.contains("6 DE N AISR initialize" + noLookup));
    EXPECT_FALSE(manager->isVideoEngineSupported());
    EXPECT_TRUE(log.contains("5 DE N VideoEngine isAisrProcessorSupported" + noLookup));

    install(ANSWERS);
    EXPECT_FALSE(manager->isVideoEngineSupported());
    EXPECT_EQ(takeCalls(), "") << "that outcome holds for the process";
    const int32_t before = service->getStrongCount();
    EXPECT_EQ(manager->getService(), service);
    EXPECT_EQ(checkDisplayEngineService(), service);
    EXPECT_EQ(getDisplayEngineService(), service);
    EXPECT_EQ(service->getStrongCount(), before + 1) << "the manager keeps a reference";
    sp<Manager> another = newManager();
    EXPECT_EQ(another->getService(), service);
    EXPECT_EQ(service->getStrongCount(), before + 2);
    another.clear();
    EXPECT_EQ(service->getStrongCount(), before + 1) << "and gives it back";

    const sp<QueriedService> successor = new QueriedService;
    add(successor);
    EXPECT_EQ(checkDisplayEngineService(), successor);
    EXPECT_EQ(manager->getService(), service) << "once found, it is never looked up again";
}

}  // namespace
