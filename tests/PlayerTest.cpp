// The player's account of a run: what the log says about a frame, which planes may be reused, and
// the report.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "demo/player/Comparison.h"
#include "demo/player/EngineLog.h"
#include "demo/player/FramePool.h"
#include "demo/player/Options.h"
#include "demo/player/Report.h"
#include "demo/player/Summary.h"
#include "demo/player/VideoDecoder.h"

namespace {

namespace fs = std::filesystem;
using namespace player;

constexpr char kEngine[] = "DE N AISR";
constexpr char kFrame[] = "data:{ id=7b3f idx=3 640(704)x360 }";

class PlayerReport : public testing::Test {
protected:
    PlayerReport() {
        std::string name = (fs::temp_directory_path() / "player-test.XXXXXX").string();
        mFolder = mkdtemp(name.data());
    }
    ~PlayerReport() override { fs::remove_all(mFolder); }

    fs::path mFolder;
};

std::string expand(std::string text) {
    const size_t at = text.find('@');
    return at == std::string::npos ? text : text.replace(at, 1, kFrame);
}

TEST(EngineLog, TellsTheOutcomesOfAFrameApart) {
    struct Case {
        const char* message;  // what the player's thread logs during the call; @ is the frame
        bool isChanged;
        Outcome outcome;
    };
    const Case cases[] = {
        {"enhance:1: doEnhance(@) used 3.1ms return 0", true, Outcome::kEnhanced},
        {"enhance:1: doEnhance(@) used 3.1ms return 0", false, Outcome::kUnchanged},
        {"enhance:1: doEnhance(@) used 3.1ms return -1", true, Outcome::kFailed},
        {"enhance:1: doEnhance(@) expired 40.2(40)ms timeout!", false, Outcome::kExpired},
        {"enhance:1: Overload! @ skip.", false, Outcome::kRefusedOverload},
        {"enhance:1: Tasks is not empty! enhance(@) skip!", false, Outcome::kRefusedBusy},
        {"enhance:1: Invalid input: @", false, Outcome::kRefusedInvalid},
        {"isReady:1: Retry count:0", false, Outcome::kRefusedNotReady},
        {"getReady:1: mAlgorithm.init() failed!", false, Outcome::kRefusedNotReady},
        {"isUnhealthy:1: monitor UNHEALTHY ID:7b3f 640(704)x360 fps:61!", false,
         Outcome::kRefusedUnhealthy},
        {"other:1: nothing of interest", false, Outcome::kRefusedUnknown},
        {"other:1: nothing of interest", true, Outcome::kEnhanced},
    };
    for (const Case& c : cases) {
        EngineLog log;
        log.beginFrame();
        log.note(kEngine, expand(c.message), false, true);
        EXPECT_EQ(log.outcome(c.isChanged), c.outcome) << c.message;
        EXPECT_EQ(log.isExpired(), c.outcome == Outcome::kExpired) << c.message;
        log.beginFrame();
        EXPECT_FALSE(log.isExpired()) << "the next frame starts afresh";
    }
    EngineLog log;
    log.note(kEngine, expand("enhance:1: doEnhance(@) expired 40.2(40)ms timeout!"), true, false);
    log.note("ffmpeg", expand("enhance:1: doEnhance(@) expired 40.2(40)ms timeout!"), true, true);
    EXPECT_FALSE(log.isExpired()) << "another thread's frame, or another library's message";
}

// Between its interval closes the monitor refuses without a message.
TEST(EngineLog, RemembersTheMonitorsVerdict) {
    EngineLog log;
    const auto outcomeAfter = [&](const char* message) {
        log.beginFrame();
        log.note(kEngine, message, false, true);
        log.beginFrame();
        return log.outcome(false);
    };
    EXPECT_EQ(outcomeAfter("isUnhealthy:1: monitor UNHEALTHY ID:1!"), Outcome::kRefusedUnhealthy);
    EXPECT_EQ(outcomeAfter("isUnhealthy:1: monitor restore:0 ID:1."), Outcome::kRefusedUnhealthy);
    EXPECT_EQ(outcomeAfter("isUnhealthy:1: monitor restore:1 ID:1."), Outcome::kRefusedUnknown);
    EXPECT_EQ(outcomeAfter("isUnhealthy:1: monitor UNHEALTHY:1(Not allow restore) ID:1."),
              Outcome::kRefusedUnhealthy);
    EXPECT_EQ(outcomeAfter("isUnhealthy:1: monitor healthy ID:1."), Outcome::kRefusedUnknown);
}

TEST(EngineLog, KeepsLimitsProgressAndReasons) {
    EngineLog log;
    EXPECT_FALSE(log.limits());
    log.note(
        kEngine,
        "getConfig:1: enable:1 rect:{ min:512x512 max:720x1280 } maxFps:30 monitor:{ maxFps:38 "
        "tolerance:2 restore:3 } timeout:{ abort:41ms overload:32ms tolerance:5/10000ms }",
        false, true);
    ASSERT_TRUE(log.limits());
    EXPECT_EQ(log.limits()->abortMs, 41);
    EXPECT_EQ(log.limits()->overloadMs, 32);

    EXPECT_FALSE(log.lastCompleted());
    log.note(kEngine, expand("doEnhance:1: mAlgorithm.enhance(@) failed! Used 41ms"), true, false);
    EXPECT_EQ(log.lastCompleted(), 3U);

    const auto condition = [&](const char* name, const char* flag, const char* reason) {
        log.note(kEngine,
                 std::string("updateEnhance:1: mIsEnhance[") + name + "]:" + flag +
                     " mEnhanceCount:1 for /bin/player. Because " + reason,
                 false, false);
    };
    EXPECT_EQ(log.whyNotNeeded(), "switched off by the service");
    condition("EN_COND_FPS", "0", "mFps:60(mMaxFps:30)");
    EXPECT_NE(log.whyNotNeeded().find("mFps:60(mMaxFps:30)"), std::string::npos);
    condition("EN_COND_RECT", "0", "rect:320x240(min:512x512 max:720x1280)");
    EXPECT_NE(log.whyNotNeeded().find("rect:320x240(min"), std::string::npos);
    condition("EN_COND_RECT", "1", "rect:720x576(min:512x512 max:720x1280)");
    condition("EN_COND_FPS", "1", "mFps:25(mMaxFps:30)");
    EXPECT_EQ(log.whyNotNeeded(), "switched off by the service");

    EXPECT_EQ(log.firstWarning().rfind("mAlgorithm.enhance(", 0), 0U);
    EXPECT_EQ(log.transportTrouble(), "");
    log.note("binder", "the runtime directory /x cannot be used", true, true);
    EXPECT_EQ(log.transportTrouble(), "the runtime directory /x cannot be used");
    log.note("DE N DEM", "checkDisplayEngineService:9: binder is nullptr!", true, true);
    EXPECT_NE(log.lastWarning(), "binder is nullptr!") << "the facade says it better";
    log.note("DE N AISRAlgo", "openLibrary:9: Can't open library 'x' - y", true, false);
    EXPECT_EQ(log.lastWarning(), "Can't open library 'x' - y");
}

TEST(FramePool, KeepsExpiredPlanesUntilALaterFrameHasCompleted) {
    FramePool pool;
    auto first = pool.take(768, 576);
    auto second = pool.take(768, 576);
    const Frame* firstAddress = first.get();
    pool.hold(std::move(first), 4);
    pool.hold(std::move(second), 5);
    pool.completed(4);
    EXPECT_EQ(pool.heldFrames(), 2U) << "its own completion frees no frame";
    EXPECT_NE(pool.take(768, 576).get(), firstAddress);
    pool.completed(5);
    EXPECT_EQ(pool.heldFrames(), 1U);
    EXPECT_EQ(pool.take(768, 576).get(), firstAddress) << "the completed one is used again";
    EXPECT_EQ(pool.take(61, 37)->stride(), 64);
    EXPECT_EQ(pool.take(65, 37)->bytes(), 128U * (37 + 19)) << "an odd height rounds up";
}

TEST(Summary, PercentilesAreTimesThatOccurred) {
    EXPECT_EQ(latencyStats({}).count, 0U);
    const LatencyStats one = latencyStats({7});
    EXPECT_EQ(one.median, 7);
    EXPECT_EQ(one.p99, 7);
    std::vector<float> times;
    for (int i = 200; i >= 1; --i) {
        times.push_back(static_cast<float>(i));
    }
    const LatencyStats many = latencyStats(times);
    EXPECT_EQ(many.median, 100);
    EXPECT_EQ(many.p99, 198);
    EXPECT_EQ(many.largest, 200);
}

RunResult sampleRun() {
    RunResult run;
    run.frames = {{0, Outcome::kNotNeeded, 0},
                  {1, Outcome::kEnhanced, 2.5F},
                  {2, Outcome::kExpired, 40.25F},
                  {3, Outcome::kRefusedOverload, 0.01F}};
    run.notNeeded = {{"switched off by the service", 1}};
    run.seconds = 0.4;
    run.limits = {40, 33};
    return run;
}

TEST(Summary, NamesWhatBecameOfTheFrames) {
    std::ostringstream text;
    printSummary(text, sampleRun());
    for (const char* part :
         {"4 frames in 0.4 s", "1: switched off by the service", "33.3 %", "refused, overload",
          "Latency of 2 processed frames: median 2.5 ms, 99th percentile 40.2 ms, largest 40.2 ms",
          "overload 33 ms, abort 40 ms"}) {
        EXPECT_NE(text.str().find(part), std::string::npos) << part << " in\n" << text.str();
    }
    EXPECT_EQ(text.str().find("busy"), std::string::npos) << "what did not happen is not listed";
}

TEST_F(PlayerReport, ShowsTheFrameBeforeAndAfter) {
    Frame frame(96, 80);
    Comparison comparison;
    std::fill(frame.y(), frame.y() + frame.lumaBytes(), uint8_t{60});
    std::fill(frame.uv(), frame.y() + frame.bytes(), uint8_t{128});
    comparison.before(frame);
    frame.y()[100] = 99;  // beyond the width of 96: padding
    EXPECT_FALSE(comparison.after(frame));
    EXPECT_FALSE(comparison.hasPicture());
    std::fill(frame.y(), frame.y() + frame.lumaBytes(), uint8_t{180});
    EXPECT_TRUE(comparison.after(frame));
    comparison.before(frame);
    frame.y()[0] = 181;
    EXPECT_TRUE(comparison.after(frame)) << "a lesser change, which does not replace the picture";

    const std::string path = (mFolder / "picture.png").string();
    ASSERT_EQ(comparison.writePicture(path), "");
    VideoDecoder decoder(path);
    ASSERT_TRUE(decoder.next());
    Frame shown(decoder.width(), decoder.height());
    decoder.convertTo(shown);
    EXPECT_NEAR(shown.y()[40 * shown.stride() + 20], 60, 3);
    EXPECT_NEAR(shown.y()[40 * shown.stride() + 76], 180, 3);
    EXPECT_GT(shown.y()[40 * shown.stride() + 48], 220) << "the seam";
    EXPECT_FALSE(decoder.next());
    EXPECT_NE(comparison.writePicture("/nonexistent/picture.png"), "");
}

TEST_F(PlayerReport, SurvivesAMissingGnuplotAndDropsStaleFiles) {
    std::ofstream(mFolder / "latency.png") << "of an earlier run";
    prepareOutput(mFolder);
    EXPECT_TRUE(fs::is_empty(mFolder));
    const std::string path = std::getenv("PATH");
    setenv("PATH", mFolder.c_str(), 1);
    std::ostringstream text;
    EXPECT_TRUE(writeReport(mFolder, sampleRun(), Comparison(), text));
    setenv("PATH", path.c_str(), 1);
    EXPECT_NE(text.str().find("No latency.png: gnuplot is not installed\n"), std::string::npos);
    EXPECT_NE(text.str().find("No before_after.png: no frame was enhanced\n"), std::string::npos);
    std::ostringstream csv;
    csv << std::ifstream(mFolder / "frames.csv").rdbuf();
    EXPECT_EQ(csv.str(),
              "index,outcome,milliseconds\n0,not_needed,\n1,enhanced,2.500\n2,expired,40.250\n"
              "3,refused_overload,0.010\n");
    EXPECT_FALSE(writeReport("/nonexistent", sampleRun(), Comparison(), text));
}

TEST_F(PlayerReport, DrawsIntoAFolderWithAnOddName) {
    if (std::system("gnuplot --version >/dev/null 2>&1") != 0) {
        GTEST_SKIP() << "gnuplot is not installed";
    }
    const fs::path folder = mFolder / "it's \"odd\", [really]";
    prepareOutput(folder);
    std::ostringstream text;
    EXPECT_TRUE(writeReport(folder, sampleRun(), Comparison(), text));
    EXPECT_TRUE(fs::exists(folder / "latency.png")) << text.str();
}

TEST_F(PlayerReport, SaysWhyAFileIsNoVideo) {
    const std::string path = (mFolder / "broken.avi").string();
    std::ofstream(path) << "RIFF is how it begins, and that is all";
    for (const std::string& video : {path, mFolder.string(), std::string("/nonexistent.avi")}) {
        try {
            VideoDecoder decoder(video);
            ADD_FAILURE() << video;
        } catch (const VideoError& error) {
            EXPECT_NE(std::string(error.what()).find(video), std::string::npos);
        }
    }
}

TEST(PlayerOptions, PaceIsARateOrMax) {
    struct Case {
        const char* text;
        std::optional<double> fps;
    };
    for (const Case& c : {Case{"max", 0},
                          {"60", 60},
                          {"29.97", 29.97},
                          {"0", {}},
                          {"-5", {}},
                          {"2000", {}},
                          {"fast", {}},
                          {"30x", {}},
                          {"nan", {}}}) {
        const char* arguments[] = {"player", "video.avi", "--fps", c.text};
        Options options;
        EXPECT_EQ(parseOptions(4, arguments, options),
                  c.fps ? std::nullopt : std::optional<int>(2));
        EXPECT_EQ(options.fps, c.fps) << c.text;
    }
}

}  // namespace
