// The display queries and settings, each against a real service process that answers, answers with
// errors or too little, refuses by an exception, has died, or was never there.
#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <iostream>
#include <map>
#include <thread>

#include "client/DisplayEngineManager.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/ProtocolPeer.h"
#include "support/ProtocolPeerObjects.h"

using android::sp;
using android::String16;
using android::binder::Status;
using protocol::call;
using Texts = std::vector<std::string>;

namespace {

constexpr char kServiceArgument[] = "--service";

/** Answers in its mode, and reports each call on standard output. */
class QueriedService : public protocol::RecordingService {
public:
    explicit QueriedService(const std::string& mode) : mMode(mode) {}

    Status getSupported(int32_t feature, int32_t* result) override {
        *result = mMode == "errors" ? -3 : 1;
        return report(call("getSupported", feature));
    }
    Status setScene(int32_t scene, int32_t value, int32_t* result) override {
        *result = mMode == "errors" ? 5 : 7;
        return report(call("setScene", scene, value));
    }
    Status setData(int32_t type, const Bundle& data, int32_t* result) override {
        *result = mMode == "errors" ? 5 : 7;
        return report(call("setData", type, data, static_cast<int32_t>(data.size())));
    }
    Status getEffect(int32_t feature, int32_t type, std::vector<uint8_t>* buffer, int32_t length,
                     int32_t* result) override {
        const auto size = static_cast<int32_t>(buffer->size());
        const std::map<int32_t, std::string> answers = {
            {14, "  PANEL01"}, {33, std::string("\x10\x02\xff\xff", 4)}, {25, "\x80"}};
        const std::string& answer = answers.at(feature);
        std::copy(answer.begin(), answer.end(), buffer->begin());
        if (mMode == "short") {
            buffer->resize(size == 255 ? 0 : buffer->size() - 1);
        }
        *result = mMode == "errors" ? 5 : 0;
        return report(call("getEffect", feature, type, size, length));
    }
    Status registerCallback(const Callback&) override { return report("registerCallback"); }
    Status unregisterCallback(const Callback&) override { return report("unregisterCallback"); }

private:
    Status report(const std::string& call) {
        std::cout << call << std::endl;
        return mMode == "refuses" ? Status::fromExceptionCode(Status::EX_SECURITY) : Status::ok();
    }

    const std::string mMode;
};

std::string gPanelName;

/** The service's state, and so which of a method's outcomes holds. */
enum Mode { ANSWERS, ERRORS, REFUSES, NONE };

/** A method with its outcome in each mode. */
struct Method {
    const char* name;
    std::function<int(DisplayEngineManager&)> call;
    Texts calls;  ///< What the service sees.
    std::array<int, 4> results;
    // What it leaves in the log in each mode, if anything.
    std::string refused = "";
    std::string failed = "";
    std::string answered = "";
    std::string missing = "Failed to get displayengineserver binder!";

    std::string message(Mode mode) const {
        return std::array{answered, failed, refused, missing}[mode];
    }
};

std::vector<Method> methods() {
    using Manager = DisplayEngineManager;
    const auto setBrightness = [](Manager& it) { return it.displayengineSetBrightness(100); };
    const auto getName = [](Manager& it) {
        gPanelName = "untouched";
        return it.getPanelName(gPanelName);
    };
    const auto setScene = [](Manager& it) { return it.setScene(3, -4); };
    const auto setRate = [](Manager& it) { return it.setFrameRate(std::string("60\0x", 4)); };
    const sp<protocol::RecordingCallback> callback = new protocol::RecordingCallback;
    const std::string notAdded = "Failed to registerCallback()";
    const std::string notRemoved = "Failed to unregisterCallback()";
    const auto add = [=](Manager& it) { return it.registerCallback(callback), 0; };
    const auto remove = [=](Manager& it) { return it.unregisterCallback(callback), 0; };
    const std::string noService = "service is nullptr!";
    const std::string closed = "RgLed closed. mSupportRgLedPrinted=1";
    const std::string noName = "getPanelName() failded ret= ";
    const std::string noFolding = "Failed to getSupported(DE_FEATURE_FOLDINGCOMPENSATION)";
    const std::string noAlpha =
        "Failed to getEffect(DE_FEATURE_FOLDINGCOMPENSATION, DE_DATA_TYPE_ALPHA)";
    const std::string noHbm = "Displayengineserver binder failed!";
    const std::string noRate = "Failed to setData(DE_DATA_TYPE_FRAMERATE, 60)!";
    const auto reading = &Manager::getReadingSupport;
    const auto globalReading = &Manager::getGlobalReadingSupport;
    const auto folding = &Manager::getFoldingCompensationSupported;
    const auto alpha = &Manager::getFoldingCompensationAlpha;
    const auto hbm = &Manager::getLocalHBMSupport;
    return {
        {"displayengineSetBrightness",
         setBrightness,
         {"getSupported 19", "setScene 20 100"},
         {1, -3, 0, -1},
         closed,
         closed,
         "mSupportRgLed=1",
         noService},
        {"getPanelName",
         getName,
         {"getEffect 14 0 255 255"},
         {0, 5, -1, -1},
         noName + "-1",
         noName + "5",
         "",
         noService},
        {"getReadingSupport", reading, {"getSupported 26"}, {1, -3, 0, 0}},
        {"getGlobalReadingSupport", globalReading, {"getSupported 34"}, {1, -3, 0, 0}},
        {"getFoldingCompensationSupported", folding, {"getSupported 33"}, {1, -3, 0, 0}, noFolding},
        {"getFoldingCompensationAlpha",
         alpha,
         {"getEffect 33 14 4 4"},
         {-65008, 1023, 1023, 1023},
         noAlpha,
         noAlpha + ", return 5",
         "alpha=-65008"},
        {"getLocalHBMSupport", hbm, {"getEffect 25 16 1 1"}, {1, 0, 0, 0}, noHbm},
        {"setScene", setScene, {"setScene 3 -4"}, {7, 5, -22, -22}, "Failed to setScene(3, -4)!"},
        {"setFrameRate", setRate, {"setData 15 FPS=60 1"}, {7, 5, -22, -22}, noRate},
        {"registerCallback", add, {"registerCallback"}, {0, 0, 0, 0}, notAdded},
        {"unregisterCallback", remove, {"unregisterCallback"}, {0, 0, 0, 0}, notRemoved},
    };
}

class DisplayQueries : public testing::Test {
protected:
    DisplayQueries() : manager(new DisplayEngineManager) {
        g_delogdEnable = g_delogiEnable = true;  // The manager has switched them off.
    }

    void startService(const std::string& mode) {
        service =
            std::make_unique<ChildProcess>(ChildProcess::ownPath(), Texts{kServiceArgument, mode});
        ASSERT_TRUE(service->waitForLine("ready"));
    }

    /** Calls the method: its result, and its last message or none, are those of the mode. */
    void expect(const Method& method, Mode mode) {
        log.take();
        EXPECT_EQ(method.call(*manager), method.results[mode]);
        const std::string message = method.message(mode);
        const std::string line = log.last("DE N DEM ");
        EXPECT_EQ(line.substr(std::min(line.size(), size_t{2})),
                  message.empty() ? "" : std::string("DE N DEM ") + method.name + ":#: " + message);
    }

    /** Calls every method once, each with a service of this mode. */
    void callAll(const std::string& name, Mode mode) {
        startService(name);
        for (const Method& method : methods()) {
            SCOPED_TRACE(method.name);
            manager = new DisplayEngineManager;
            g_delogdEnable = g_delogiEnable = true;
            expect(method, mode);
            Texts seen = method.calls;
            if (seen.size() == 2 && mode != ANSWERS) {
                seen.pop_back();  // Without the feature the brightness is not sent.
            }
            for (const std::string& call : seen) {
                EXPECT_EQ(service->readLine(), call);
            }
        }
        EXPECT_EQ(gPanelName, mode == ANSWERS ? "PANEL01" : "untouched");
    }

    LogCapture log;
    sp<DisplayEngineManager> manager;
    std::unique_ptr<ChildProcess> service;
};

TEST_F(DisplayQueries, PassTheServicesAnswersOn) {
    callAll("answers", ANSWERS);
}

TEST_F(DisplayQueries, PassTheServicesErrorsOn) {
    callAll("errors", ERRORS);
}

TEST_F(DisplayQueries, AnswerARefusalWithTheirFailureValues) {
    callAll("refuses", REFUSES);
}

TEST_F(DisplayQueries, ReadNothingBehindAShortReply) {
    startService("short");
    EXPECT_EQ(manager->getFoldingCompensationAlpha(), 1023);
    EXPECT_EQ(manager->getLocalHBMSupport(), 0);
    EXPECT_EQ(manager->getPanelName(gPanelName), 0);
    EXPECT_EQ(gPanelName, "");
}

TEST_F(DisplayQueries, AnswerADeadServiceWithTheirFailureValues) {
    startService("answers");
    ASSERT_NE(manager->getService(), nullptr);
    service->kill();
    service->wait();
    for (const Method& method : methods()) {
        SCOPED_TRACE(method.name);
        // The panel's name alone is asked of a service that is looked up anew.
        expect(method, method.name == std::string("getPanelName") ? NONE : REFUSES);
    }
}

TEST_F(DisplayQueries, AnswerWithTheirFailureValuesWithoutAService) {
    // All at once, since each waits some seconds for a service that is not yet up.
    const std::vector<Method> all = methods();
    std::vector<int> results(all.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < all.size(); ++i) {
        threads.emplace_back([&, i] {
            results[i] = all[i].call(*sp<DisplayEngineManager>(new DisplayEngineManager));
        });
    }
    for (size_t i = 0; i < all.size(); ++i) {
        SCOPED_TRACE(all[i].name);
        threads[i].join();
        EXPECT_EQ(results[i], all[i].results[NONE]);
        const std::string start = std::string("6 DE N DEM ") + all[i].name + ":#: ";
        EXPECT_EQ(log.count(start + all[i].missing), 1U);
    }
}

TEST_F(DisplayQueries, SendABrightnessOnce) {
    EXPECT_EQ(manager->displayengineSetBrightness(-1), -1);
    EXPECT_EQ(log.take().back(),
              "6 DE N DEM displayengineSetBrightness:#: INVALID BrightnessLevel=-1.");
    startService("answers");
    for (const int level : {100, 100, 101, 0, 0}) {
        EXPECT_EQ(manager->displayengineSetBrightness(level), 1);
    }
    manager->getReadingSupport();
    for (const char* call : {"getSupported 19", "setScene 20 100", "setScene 20 101",
                             "setScene 20 0", "getSupported 26"}) {
        EXPECT_EQ(service->readLine(), call);
    }
}

TEST_F(DisplayQueries, AskForTheBrightnessFeatureOnceAndTellOnceThatItIsClosed) {
    startService("refuses");
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(manager->displayengineSetBrightness(100), 0);
    }
    EXPECT_EQ(log.count("RgLed closed. mSupportRgLedPrinted=1"), 1U);
    EXPECT_EQ(log.count("mSupportRgLed=0"), 1U);
    manager->getReadingSupport();
    EXPECT_EQ(service->readLine(), "getSupported 19");
    EXPECT_EQ(service->readLine(), "getSupported 26");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && argv[1] == std::string(kServiceArgument)) {
        return protocol::serve({{"DisplayEngineService", new QueriedService(argv[2])}});
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
