// SPDX-License-Identifier: Apache-2.0
// A media client's session: what it tells of each frame, when it hands the planes back, and what it
// leaves of the process's log.
#include "media/VideoSession.h"

#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>

#include "client/DisplayEngineManager.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/ChildProcess.h"
#include "support/ControlledClock.h"
#include "support/EngineService.h"
#include "support/ProcessingLibrary.h"
#include "support/TestMain.h"

using namespace displayengine::media;
using processing::Call;
using processing::Gate;
using Texts = std::vector<std::string>;

namespace {

uint8_t planes[64 * 24];
constexpr Frame kFrame{planes, planes + 64 * 16, 32, 16, 64};

/** What the session passes on. Never destroyed: messages come while the process exits. */
Lines& written() {
    static Lines& lines = *new Lines;
    return lines;
}
void write(const __android_log_message* message) {
    written().add(std::to_string(message->priority) + " " + message->tag + " " + message->message);
}

/** Has the wait for the next frame end at once, however patient the configuration is. */
void expireNext() {
    controlled_clock::misreadWallClockOnce(-std::chrono::hours(1));
}

class VideoSessionTest : public testing::Test {
protected:
    explicit VideoSessionTest(bool hasService = true)
        : service(hasService ? EngineService::install() : new EngineService) {
        processing::use("without_nothing");
        service->config.abortMs = EngineService::kPatientMs;
        service->config.monitorMaxFps = 1'000'000;
    }
    ~VideoSessionTest() override {
        session.reset();
        processing::setHook(nullptr);
    }

    void open() { session = VideoSession::open(options); }
    /** Offers a frame, whose release adds its name to `released`: "outcome: text". */
    std::string offer(const std::string& name, const Frame& frame = kFrame) {
        const Result result = session->offer(frame, [this, name] { released.add(name); });
        return outcomeName(result.outcome) + (result.text.empty() ? "" : ": " + result.text);
    }
    /** "reason: text" */
    std::string whyNot() const {
        const Wanted wanted = session->wanted();
        EXPECT_EQ(session->isWanted(), wanted.reason == Reason::kNone);
        return reasonName(wanted.reason) + (wanted.text.empty() ? "" : ": " + wanted.text);
    }
    /** Has two frames expire: the library is at the first, and the second is queued. */
    void expireTwo() {
        for (const char* name : {"processing", "queued"}) {
            expireNext();
            EXPECT_EQ(offer(name).find("expired: doEnhance(data:{ id="), 0U);
            processing::waitFor("AisrProcess");
        }
    }

    VideoSession::Options options{1280, 720, 29.97, write};
    android::sp<EngineService> service;
    std::unique_ptr<VideoSession> session;
    Lines released;
};

void expectStart(const std::string& text, const std::string& start) {
    EXPECT_EQ(text.substr(0, start.size()), start);
}

TEST_F(VideoSessionTest, TellsWhatBecameOfAFrame) {
    open();
    const Frame invalid{planes, planes, 32, 16, 0};
    const struct {
        const char* failing; /**< The entry that does. */
        int32_t status;      /**< 0 for an exception. */
        const Frame& frame;
        std::string outcome;
    } cases[] = {
        {"", 0, kFrame, "processed"},
        {"AisrProcess", 1, kFrame, "failed: mProcessFunc failed, return AISR_ERR_FATAL(1)"},
        {"AisrSetParam(2)", 2, kFrame,
         "failed: mSetParamFunc(&mContext,AISR_TAG_SET_BUF(2),&bufInfo,24) failed, return AISR_"},
        {"AisrProcess", 0, kFrame, "failed: mAlgorithm.enhance(data:{ id="},
        {"", 0, invalid, "refused-invalid: Invalid input: data:{ id="},
    };
    for (const auto& expected : cases) {
        processing::setHook([&](const Call& call) {
            const bool isFailing = call.text() == expected.failing;
            return isFailing && expected.status == 0 ? throw 7 : isFailing ? expected.status : 0;
        });
        expectStart(offer(""), expected.frame.stride == 0 ? "processed" : expected.outcome);
        expectStart(offer("", expected.frame), expected.outcome);
        EXPECT_EQ(released.take().size(), 2U) << "inside the call";
    }
    EXPECT_EQ(session->offer(kFrame, nullptr).outcome, Outcome::kProcessed);
    EXPECT_EQ(session->offer(kFrame, [] { throw 7; }).outcome, Outcome::kProcessed);
    session->close();
    EXPECT_EQ(offer("late"), "not-offered: the session is closed");
    EXPECT_EQ(released.lines().back(), "late");
}

TEST_F(VideoSessionTest, TellsFramesThatTheEngineRefuses) {
    processing::use("");
    service->config.toleranceCount = 2;
    service->config.maxFps = 2;
    service->config.monitorMaxFps = 3;  // The monitor's intervals close on their fourth frame.
    service->config.monitorTolerance = service->config.monitorRestore = 0;
    options.fps = 2;
    open();
    for (int i = 0; i < 7; ++i) {  // The engine gives up after some.
        expectStart(offer(""), "refused-not-ready: Can't open library '/system/lib64/libAISRPro");
    }
    session->close();
    processing::use("without_nothing");
    open();
    processing::setHook([](const Call& call) {
        controlled_clock::advance(std::chrono::milliseconds(call.entry == "AisrProcess" ? 33 : 0));
        return 0;
    });
    EXPECT_EQ(session->offer(kFrame, nullptr).milliseconds, 33);
    EXPECT_EQ(offer(""), "processed");
    expectStart(offer(""), "refused-overload: Overload! data:{ id=");
    session->restartStream();
    EXPECT_EQ(offer(""), "processed");
    for (int i = 0; i < 4; ++i) {  // The monitor says nothing of the later ones.
        expectStart(offer(""), "refused-unhealthy: monitor UNHEALTHY ID:");
    }
    EXPECT_FALSE(written().contains("DE N Media")) << "a message of the session's own";
    controlled_clock::advance(std::chrono::seconds(2));
    EXPECT_EQ(offer(""), "processed");
    EXPECT_EQ(released.lines().size(), 15U);
}

struct BringUp {
    const char* name;
    void (*prepare)(EngineService&); /**< Null for no service. */
    const char* reason;
};

/** What the process's first attempt finds is final, so each takes a process of its own. */
class VideoSessionBringUpTest : public VideoSessionTest,
                                public testing::WithParamInterface<BringUp> {
protected:
    VideoSessionBringUpTest() : VideoSessionTest(GetParam().prepare != nullptr) {}
};

INSTANTIATE_TEST_SUITE_P(
    All, VideoSessionBringUpTest,
    testing::Values(
        BringUp{"no_service", nullptr,
                "no-service: no display engine service was found: the runtime directory / cannot"},
        BringUp{"not_supported", [](auto& it) { it.support = 2; },
                "not-supported: the service does not support video enhancement"},
        BringUp{
            "no_answer",
            [](auto& it) { it.outcomes["getSupported"] = EngineService::Status::fromStatusT(-1); },
            "not-supported: the service did not say what it supports"},
        BringUp{"invalid", [](auto& it) { it.config.maxFps = 1; },
                "not-started: the engine did not come up: Invalid input: rect:{ min:512x512 max:"},
        BringUp{"off", [](auto& it) { it.config.enable = 0; },
                "switched-off: enhancement is switched off for this process"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_P(VideoSessionBringUpTest, TellsWhatItFound) {
    if (GetParam().prepare != nullptr) {
        GetParam().prepare(*service);
    } else {
        setenv("DISPLAYENGINE_RUNTIME_DIR", "/", 1);
    }
    open();
    expectStart(whyNot(), GetParam().reason);
    EXPECT_EQ(offer(""), "not-offered: " + session->wanted().text);
    EXPECT_EQ(released.lines().size(), 1U);
}

TEST_F(VideoSessionTest, TellsTheConditionThatDoesNotHold) {
    // The engine has these values already, and says nothing when they are reported again.
    const android::sp<DisplayEngineManager> other = new DisplayEngineManager;
    other->setVideoRect(512, 512);
    other->setVideoFrameRate(60);
    options = {512, 512, 60, write};
    open();
    EXPECT_EQ(whyNot(),
              "size: the size is outside the service's range, "
              "rect:512x512(min:512x512 max:720x1280)");
    session->setSize(720, 1280);
    const std::string reason = "the frame rate is above the service's ceiling, ";
    EXPECT_EQ(whyNot(), "rate: " + reason + "mFps:60(mMaxFps:30)");
    session->setFrameRate(0);
    EXPECT_EQ(offer(""), "not-offered: " + reason + "mFps:60(mMaxFps:30)");
    session->setFrameRate(30.4);
    EXPECT_EQ(whyNot(), "none");
    other->setAisrEnable(false);
    expectStart(whyNot(), "switched-off: ");
    other->setAisrEnable(true);
    EXPECT_EQ(whyNot(), "none");
    EXPECT_FALSE(session->limits()) << "the engine came up before the first session";
    session->close();
    EXPECT_EQ(whyNot(), "closed: the session is closed");
}

TEST_F(VideoSessionTest, HoldsAnExpiredFrameUntilTheWorkerNamesItDone) {
    open();
    EXPECT_EQ(session->limits().value().abortMs, 10'000);
    EXPECT_EQ(session->limits().value().monitorFps, 1'000'000);
    Gate gates[2];
    size_t processed = 0;
    processing::setHook([&](const Call& call) {
        if (call.entry == "AisrProcess") {
            gates[processed++].pass();
        }
        return 0;
    });
    expireTwo();
    expectStart(offer("busy"), "refused-busy: Tasks is not empty! enhance(");
    EXPECT_EQ(released.lines(), Texts{"busy"});
    // Without memory for its name.
    __android_log_print(ANDROID_LOG_INFO, "DE N AISR", "doEnhance:1: enhance() used 1ms");
    EXPECT_EQ(session->heldCount(), 2U);
    gates[0].open();
    processing::waitFor("AisrProcess", 2);
    EXPECT_EQ(released.lines(), (Texts{"busy", "processing"}));
    gates[1].open();
    released.waitFor("queued");
    waitUntil("no frame to be held", [this] { return session->heldCount() == 0; });

    // One that is named done before the call for it has returned is not held.
    Gate late;
    processing::setHook([&late](const Call& call) {
        if (call.entry == "AisrProcess") {
            late.pass();
            return AISR_ERR_FATAL;
        }
        if (call.tag == AISR_TAG_SET_TIMEOUT) {
            late.open();
            written().waitFor("DE N AISR doEnhance:");
        }
        return AISR_SUCCESS;
    });
    written().take();
    expireNext();
    expectStart(offer("late"), "expired: ");
    EXPECT_EQ(released.lines().back(), "late");
}

TEST_F(VideoSessionTest, HandsBackByALaterFrameWhatTheWorkerNamedUnheard) {
    open();
    Gate gate;
    processing::hold("AisrProcess", &gate);
    expireNext();
    offer("expired");
    __android_log_set_logger(write);
    gate.open();
    written().waitFor("DE N AISR doEnhance:");
    EXPECT_EQ(offer("unheard"), "unknown: another logger has taken the place of the session's");
    session.reset();
    open();  // In its place again.
    EXPECT_EQ(session->heldCount(), 2U);
    processing::setHook([](const Call& call) {  // The worker's message for a slow frame is lost.
        controlled_clock::advance(std::chrono::milliseconds(33));
        g_delogiEnable = call.entry != "AisrProcess";
        return 0;
    });
    EXPECT_EQ(offer("later"), "processed");
    EXPECT_EQ(released.lines(), (Texts{"expired", "unheard", "later"}));
    EXPECT_EQ(session->heldCount(), 0U);
}

TEST_F(VideoSessionTest, ClosesBeforeTheLastFrameIsHandedBack) {
    open();
    Gate gate;
    processing::hold("AisrProcess", &gate);
    expireTwo();
    std::string why;
    auto closed = startAndWaitUntilAsleep([&] { session->close(); });
    EXPECT_EQ(VideoSession::open(options, &why), nullptr);
    EXPECT_EQ(why, "another video session of this process is open");
    EXPECT_EQ(released.lines(), Texts());
    gate.open();
    closed.get();
    released.waitFor("queued");
    EXPECT_EQ(released.lines(), (Texts{"processing", "queued"}));
    waitUntil("the switches to be their user's", [] { return !g_delogdEnable && !g_delogiEnable; });
    EXPECT_NE(VideoSession::open(options, &why), nullptr);
}

TEST_F(VideoSessionTest, WritesWhatWouldBeWrittenWithoutIt) {
    property_set("persist.displayengine.log", "true");
    open();
    session.reset();
    EXPECT_TRUE(g_delogdEnable && g_delogiEnable) << "their user wants it";
    property_set("persist.displayengine.log", "false");
    written().take();
    open();  // Its manager sets the switches from the properties: off.
    expectStart(written().take().at(0), "4 DE N DECC initLogSwitch:");
    processing::setHook([](const Call& call) { return call.entry == "AisrProcess" ? 1 : 0; });
    offer("");
    __android_log_print(ANDROID_LOG_INFO, "TEST", "another's");
    const Texts lines = written().take();
    ASSERT_EQ(lines.size(), 3U);
    expectStart(lines[0], "5 DE N AISRAlgo enhance:");
    expectStart(lines[1], "5 DE N AISR doEnhance:");
    EXPECT_EQ(lines[2], "4 TEST another's");

    android::sp<DisplayEngineManager> other = new DisplayEngineManager;
    EXPECT_FALSE(g_delogdEnable);
    expectStart(offer(""), "failed: ");  // They are on again.
    EXPECT_EQ(written().take().size(), 2U);
    property_set("persist.displayengine.log", "true");
    other = new DisplayEngineManager;
    offer("");
    EXPECT_TRUE(written().contains(" return -1")) << "their user wants it now";
    session.reset();
    EXPECT_TRUE(g_delogdEnable && g_delogiEnable);
}

/** Exits while a frame is held, which is then done before the engine ends. */
int exitWithAFrameHeld(const std::string&) {
    static Gate& gate = *new Gate;
    const android::sp<EngineService> service = EngineService::install();
    processing::use("without_nothing");
    android::sp<DisplayEngineManager>(new DisplayEngineManager)->isVideoEngineSupported();
    std::atexit([] { gate.open(); });
    const auto session = VideoSession::open({1280, 720, 30, write});
    processing::hold("AisrProcess", &gate);
    expireNext();
    session->offer(kFrame, [] { std::cout << "released" << std::endl; });
    processing::waitFor("AisrProcess");
    std::cout << session->heldCount() << " held" << std::endl;
    std::exit(0);
}

TEST(VideoSessionExitTest, ReleasesNothingOnceTheProcessExits) {
    ChildProcess program(ChildProcess::ownPath(), {"--exit"});
    EXPECT_EQ(program.readLine(), "1 held");
    EXPECT_EQ(program.readLine(), std::nullopt);
    EXPECT_EQ(program.wait(), 0);
}

}  // namespace

int main(int argc, char** argv) {
    return testMain(argc, argv, {{"--exit", exitWithAFrameHeld}});
}
