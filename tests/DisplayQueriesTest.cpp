// The display queries and settings, each against a real service process that answers, answers with
// errors or too little, refuses by an exception, has died, or was never there.
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/PersistableBundle.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <utils/String8.h>

#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <thread>

#include "client/DisplayEngineManager.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/ChildProcess.h"
#include "support/LogCapture.h"
#include "support/ProtocolPeerObjects.h"

using android::sp;
using android::String16;
using android::String8;
using android::binder::Status;
using Texts = std::vector<std::string>;

namespace {

constexpr char kServiceArgument[] = "--service";

/** Answers in its mode, and reports each call on standard output. */
class QueriedService : public protocol::RecordingService {
public:
    explicit QueriedService(const std::string& mode) : mMode(mode) {}

    Status getSupported(int32_t feature, int32_t* result) override {
        *result = mMode == "errors" ? -3 : 1;
        return report("getSupported", feature);
    }
    Status setScene(int32_t scene, int32_t value, int32_t* result) override {
        *result = mMode == "errors" ? 5 : 7;
        return report("setScene", scene, value);
    }
    Status setData(int32_t type, const Bundle& data, int32_t* result) override {
        String16 fps;
        data.getString(String16("FPS"), &fps);
        *result = mMode == "errors" ? 5 : 7;
        return report("setData", type, String8(fps).string(), data.size());
    }
    Status getEffect(int32_t feature, int32_t type, std::vector<uint8_t>* buffer, int32_t length,
                     int32_t* result) override {
        const Status status = report("getEffect", feature, type, buffer->size(), length);
        const std::map<int32_t, std::string> answers = {
            {14, "  PANEL01"}, {33, std::string("\x10\x02\xff\xff", 4)}, {25, "\x80"}};
        const std::string& answer = answers.at(feature);
        std::copy(answer.begin(), answer.end(), buffer->begin());
        if (mMode == "short") {
            buffer->resize(buffer->size() == 255 ? 0 : buffer->size() - 1);
        }
        *result = mMode == "errors" ? 5 : 0;
        return status;
    }
    Status registerCallback(const Callback& /*callback*/) override {
        return report("registerCallback");
    }
    Status unregisterCallback(const Callback& /*callback*/) override {
        return report("unregisterCallback");
    }

private:
    template <typename... ARGUMENTS>
    Status report(const char* name, const ARGUMENTS&... arguments) {
        std::ostringstream line;
        line << name;
        ((line << " " << arguments), ...);
        std::cout << line.str() << std::endl;
        return mMode == "refuses" ? Status::fromExceptionCode(Status::EX_SECURITY) : Status::ok();
    }

    const std::string mMode;
};

int runService(const std::string& mode) {
    if (android::defaultServiceManager()->addService(String16("DisplayEngineService"),
                                                     new QueriedService(mode)) != android::OK) {
        return 1;
    }
    android::ProcessState::self()->startThreadPool();
    std::cout << "ready" << std::endl;
    android::IPCThreadState::self()->joinThreadPool();
    return 0;
}

std::string gPanelName;

/** What a method answers, and the message it leaves, if any. */
struct Outcome {
    int result;
    std::string message = "";
};

struct Method {
    const char* name;
    std::function<int(DisplayEngineManager&)> call;
    Texts calls;  ///< What the service sees.
    Outcome answers, errors, refuses, none;
};

const std::string kNoBinder = "Failed to get displayengineserver binder!";
const std::string kNoService = "service is nullptr!";

int nothing(const std::function<void()>& call) {
    call();
    return 0;
}

std::vector<Method> methods() {
    using Manager = DisplayEngineManager;
    const sp<protocol::RecordingCallback> callback = new protocol::RecordingCallback;
    return {
        {"displayengineSetBrightness",
         [](Manager& it) { return it.displayengineSetBrightness(100); },
         {"getSupported 19", "setScene 20 100"},
         {1, "mSupportRgLed=1"},
         {-3, "RgLed closed. mSupportRgLedPrinted=1"},
         {0, "RgLed closed. mSupportRgLedPrinted=1"},
         {-1, kNoService}},
        {"getPanelName",
         [](Manager& it) {
             gPanelName = "untouched";
             return it.getPanelName(gPanelName);
         },
         {"getEffect 14 0 255 255"},
         {0},
         {5, "getPanelName() failded ret= 5"},
         {-1, "getPanelName() failded ret= -1"},
         {-1, kNoService}},
        {"getReadingSupport",
         [](Manager& it) { return it.getReadingSupport(); },
         {"getSupported 26"},
         {1},
         {-3},
         {0},
         {0, kNoBinder}},
        {"getGlobalReadingSupport",
         [](Manager& it) { return it.getGlobalReadingSupport(); },
         {"getSupported 34"},
         {1},
         {-3},
         {0},
         {0, kNoBinder}},
        {"getFoldingCompensationSupported",
         [](Manager& it) { return it.getFoldingCompensationSupported(); },
         {"getSupported 33"},
         {1},
         {-3},
         {0, "Failed to getSupported(DE_FEATURE_FOLDINGCOMPENSATION)"},
         {0, kNoBinder}},
        {"getFoldingCompensationAlpha",
         [](Manager& it) { return it.getFoldingCompensationAlpha(); },
         {"getEffect 33 14 4 4"},
         {-65008, "alpha=-65008"},
         {1023,
          "Failed to getEffect(DE_FEATURE_FOLDINGCOMPENSATION, DE_DATA_TYPE_ALPHA), return 5"},
         {1023, "Failed to getEffect(DE_FEATURE_FOLDINGCOMPENSATION, DE_DATA_TYPE_ALPHA)"},
         {1023, kNoBinder}},
        {"getLocalHBMSupport",
         [](Manager& it) { return it.getLocalHBMSupport(); },
         {"getEffect 25 16 1 1"},
         {1},
         {0},
         {0, "Displayengineserver binder failed!"},
         {0, kNoBinder}},
        {"setScene",
         [](Manager& it) { return it.setScene(3, -4); },
         {"setScene 3 -4"},
         {7},
         {5},
         {-22, "Failed to setScene(3, -4)!"},
         {-22, kNoBinder}},
        {"setFrameRate",
         [](Manager& it) { return it.setFrameRate(std::string("60\0x", 4)); },
         {"setData 15 60 1"},
         {7},
         {5},
         {-22, "Failed to setData(DE_DATA_TYPE_FRAMERATE, 60)!"},
         {-22, kNoBinder}},
        {"registerCallback",
         [=](Manager& it) { return nothing([&] { it.registerCallback(callback); }); },
         {"registerCallback"},
         {0},
         {0},
         {0, "Failed to registerCallback()"},
         {0, kNoBinder}},
        {"unregisterCallback",
         [=](Manager& it) { return nothing([&] { it.unregisterCallback(callback); }); },
         {"unregisterCallback"},
         {0},
         {0},
         {0, "Failed to unregisterCallback()"},
         {0, kNoBinder}},
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

    /** That the method's last message is the expected one, or that it left none. */
    void expect(const Method& method, const Outcome& outcome, int result) {
        EXPECT_EQ(result, outcome.result);
        const std::string line = log.last("DE N DEM ");
        const std::string own = std::string("DE N DEM ") + method.name + ":#: ";
        EXPECT_EQ(line.substr(std::min(line.size(), size_t{2})),
                  outcome.message.empty() ? "" : own + outcome.message);
    }

    /** Calls every method once, each with a service of this mode. */
    void callAll(const std::string& mode, Outcome Method::*outcome) {
        startService(mode);
        for (const Method& method : methods()) {
            SCOPED_TRACE(method.name);
            manager = new DisplayEngineManager;
            g_delogdEnable = g_delogiEnable = true;
            log.take();
            expect(method, method.*outcome, method.call(*manager));
            Texts seen = method.calls;
            if (seen.size() == 2 && mode != "answers") {
                seen.pop_back();  // Without the feature the brightness is not sent.
            }
            for (const std::string& call : seen) {
                EXPECT_EQ(service->readLine(), call);
            }
        }
    }

    LogCapture log;
    sp<DisplayEngineManager> manager;
    std::unique_ptr<ChildProcess> service;
};

TEST_F(DisplayQueries, PassTheServicesAnswersOn) {
    callAll("answers", &Method::answers);
    EXPECT_EQ(manager->getPanelName(gPanelName), 0);
    EXPECT_EQ(gPanelName, "PANEL01");
}

TEST_F(DisplayQueries, PassTheServicesErrorsOn) {
    callAll("errors", &Method::errors);
    EXPECT_EQ(gPanelName, "untouched");
}

TEST_F(DisplayQueries, AnswerARefusalWithTheirFailureValues) {
    callAll("refuses", &Method::refuses);
    EXPECT_EQ(gPanelName, "untouched");
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
        log.take();
        const int result = method.call(*manager);
        // The panel's name alone is asked of a service that is looked up anew.
        expect(method, method.name == std::string("getPanelName") ? method.none : method.refuses,
               result);
    }
}

TEST_F(DisplayQueries, AnswerWithTheirFailureValuesWithoutAService) {
    // All at once, since each waits some seconds for a service that is not yet up.
    const std::vector<Method> all = methods();
    std::vector<int> results(all.size());
    std::vector<std::thread> threads;
    for (size_t i = 0; i < all.size(); ++i) {
        threads.emplace_back([&, i] {
            const sp<DisplayEngineManager> own = new DisplayEngineManager;
            results[i] = all[i].call(*own);
        });
    }
    for (size_t i = 0; i < all.size(); ++i) {
        SCOPED_TRACE(all[i].name);
        threads[i].join();
        EXPECT_EQ(results[i], all[i].none.result);
        EXPECT_EQ(
            log.count(std::string("6 DE N DEM ") + all[i].name + ":#: " + all[i].none.message), 1U);
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
        return runService(argv[2]);
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
