// SPDX-License-Identifier: Apache-2.0
// The player's account of a run: what the log says about a frame, which planes may be reused, and
// the report.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
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

// Of this program alone, and removed at its end.
fs::path ownFolder() {
    return std::getenv("DISPLAYENGINE_RUNTIME_DIR");
}

std::string expand(std::string text) {
    const size_t at = text.find('@');
    return at == std::string::npos ? text
                                   : text.replace(at, 1, "data:{ id=7b3f idx=3 640(704)x360 }");
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
    log.note(kEngine, expand(cases[3].message), true, false);
    log.note("ffmpeg", expand(cases[3].message), true, true);
    EXPECT_FALSE(log.isExpired()) << "another thread's frame, or another library's message";
}

// Between its interval closes the monitor refuses without a message.
TEST(EngineLog, RemembersTheMonitorsVerdict) {
    EngineLog log;
    for (const std::string recovery : {"restore:1 ID:1.", "healthy ID:1."}) {
        log.note(kEngine, "isUnhealthy:1: monitor UNHEALTHY:1 ID:1!", false, true);
        log.note(kEngine, "isUnhealthy:1: monitor restore:0 ID:1.", false, true);
        EXPECT_EQ(log.outcome(false), Outcome::kRefusedUnhealthy);
        log.note(kEngine, "isUnhealthy:1: monitor " + recovery, false, true);
        EXPECT_EQ(log.outcome(false), Outcome::kRefusedUnknown) << recovery;
    }
}

TEST(EngineLog, KeepsLimitsProgressAndReasons) {
    EngineLog log;
    const auto note = [&](const std::string& text) {
        log.note(kEngine, expand(text), true, false);
    };
    log.note(kEngine, "getConfig:1: enable:1 timeout:{ abort:41ms overload:32ms tolerance:5 }",
             false, true);
    ASSERT_TRUE(log.limits());
    EXPECT_EQ(log.limits()->abortMs, 41);
    EXPECT_EQ(log.limits()->overloadMs, 32);

    EXPECT_FALSE(log.lastCompleted());
    note("doEnhance:1: mAlgorithm.enhance(@) failed! Used 41ms");
    EXPECT_EQ(log.lastCompleted(), 3U);
    EXPECT_EQ(log.firstWarning().rfind("mAlgorithm.enhance(", 0), 0U);

    for (const std::string condition : {"FPS", "RECT"}) {
        const std::string text = "updateEnhance:1: mIsEnhance[EN_COND_" + condition;
        note(text + "]:0 mEnhanceCount:1 for /bin/player. Because it is 60");
        EXPECT_NE(log.whyNotNeeded().find(", it is 60"), std::string::npos) << condition;
        note(text + "]:1 mEnhanceCount:1 for /bin/player. Because it is 25");
        EXPECT_EQ(log.whyNotNeeded(), "switched off by the service");
    }

    log.note("binder", "the runtime directory /x cannot be used", true, true);
    EXPECT_EQ(log.transportTrouble(), "the runtime directory /x cannot be used");
    log.note("DE N DEM", "checkDisplayEngineService:9: binder is nullptr!", true, true);
    EXPECT_NE(log.lastWarning(), "binder is nullptr!") << "the facade says it better";
}

TEST(FramePool, KeepsExpiredPlanesUntilALaterFrameHasCompleted) {
    FramePool pool;
    auto first = pool.take(768, 576);
    const Frame* firstAddress = first.get();
    pool.hold(std::move(first), 4);
    pool.completed(4);
    EXPECT_NE(pool.take(768, 576).get(), firstAddress) << "its own completion frees no frame";
    pool.completed(5);
    EXPECT_EQ(pool.take(768, 576).get(), firstAddress);
    EXPECT_EQ(pool.take(65, 37)->bytes(), 128U * (37 + 19)) << "an odd height rounds up";
}

TEST(Summary, PercentilesAreTimesThatOccurred) {
    EXPECT_EQ(latencyStats({}).count, 0U);
    EXPECT_EQ(latencyStats({7}).p99, 7);
    std::vector<float> times(200);
    std::iota(times.rbegin(), times.rend(), 1.0F);
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

TEST(PlayerReport, ShowsTheFrameBeforeAndAfter) {
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
    const std::string path = (ownFolder() / "picture.png").string();
    ASSERT_EQ(comparison.writePicture(path), "");
    VideoDecoder decoder(path);
    ASSERT_TRUE(decoder.next());
    Frame shown(decoder.width(), decoder.height());
    decoder.convertTo(shown);
    EXPECT_NEAR(shown.y()[40 * shown.stride() + 20], 60, 3);
    EXPECT_NEAR(shown.y()[40 * shown.stride() + 76], 180, 3);
    EXPECT_NE(comparison.writePicture("/nonexistent/picture.png"), "");
}

TEST(PlayerReport, GoesIntoAnyFolderWithOrWithoutGnuplot) {
    const fs::path folder = ownFolder() / "it's \"odd\", [really]";
    const fs::path chart = folder / "latency.png";
    std::ostringstream text;
    printSummary(text, sampleRun());
    for (const char* part : {"1: switched off by the service", "33.3 %",
                             "2 processed frames: median 2.5 ms, 99th percentile 40.2 ms"}) {
        EXPECT_NE(text.str().find(part), std::string::npos) << part << " in\n" << text.str();
    }
    prepareOutput(folder);
    EXPECT_TRUE(writeReport(folder, sampleRun(), Comparison(), text));
    EXPECT_EQ(fs::exists(chart), std::system("gnuplot --version >/dev/null 2>&1") == 0)
        << text.str();

    std::ofstream(chart) << "of an earlier run";
    prepareOutput(folder);
    EXPECT_TRUE(fs::is_empty(folder));
    setenv("PATH", ownFolder().c_str(), 1);
    EXPECT_TRUE(writeReport(folder, sampleRun(), Comparison(), text));
    EXPECT_NE(text.str().find("No latency.png: gnuplot is not installed\n"), std::string::npos);
    std::ostringstream csv;
    csv << std::ifstream(folder / "frames.csv").rdbuf();
    EXPECT_EQ(csv.str(),
              "index,outcome,milliseconds\n0,not_needed,\n1,enhanced,2.500\n2,expired,40.250\n"
              "3,refused_overload,0.010\n");
    EXPECT_FALSE(writeReport("/nonexistent", sampleRun(), Comparison(), text));
}

TEST(PlayerReport, SaysWhyAFileIsNoVideo) {
    const fs::path broken = ownFolder() / "broken.avi";
    std::ofstream(broken) << "RIFF is how it begins, and that is all";
    for (const std::string& video : {broken.string(), ownFolder().string()}) {
        EXPECT_THROW(VideoDecoder decoder(video), VideoError) << video;
    }
}

TEST(PlayerOptions, PaceIsARateOrMax) {
    const auto parsed = [](const char* pace) -> std::optional<double> {
        const char* arguments[] = {"player", "video.avi", "--fps", pace};
        Options options;
        const int exitCode = parseOptions(4, arguments, options).value_or(0);
        EXPECT_EQ(exitCode, options.fps ? 0 : 2) << pace;
        return options.fps;
    };
    EXPECT_EQ(parsed("max"), 0);
    EXPECT_EQ(parsed("29.97"), 29.97);
    for (const char* pace : {"0", "-5", "2000", "fast", "30x", "nan"}) {
        EXPECT_EQ(parsed(pace), std::nullopt) << pace;
    }
}

}  // namespace
