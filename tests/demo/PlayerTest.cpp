// SPDX-License-Identifier: Apache-2.0
// The player: what the log says about a frame, which planes may be reused, the files, and the
// program as a whole.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>

#include "ProgramRun.h"
#include "demo/player/Comparison.h"
#include "demo/player/EngineLog.h"
#include "demo/player/FramePool.h"
#include "demo/player/Report.h"

namespace {

namespace fs = std::filesystem;
using namespace player;

constexpr char kEngine[] = "DE N AISR";
const std::string kPlayer = kDemo / "player/displayengine-player";

// Of this program alone, and removed at its end.
fs::path ownFolder() {
    return std::getenv("DISPLAYENGINE_RUNTIME_DIR");
}

TEST(PlayerTest, TellsTheOutcomesOfAFrameApart) {
    const struct {
        const char* message;  // what the player's thread logs during the call
        bool isChanged;
        Outcome outcome;
    } cases[] = {
        {"enhance:1: doEnhance(1) used 3.1ms return 0", true, Outcome::kEnhanced},
        {"enhance:1: doEnhance(1) used 3.1ms return 0", false, Outcome::kUnchanged},
        {"enhance:1: doEnhance(1) used 3.1ms return -1", true, Outcome::kFailed},
        {"enhance:1: doEnhance(1) expired 40.2(40)ms timeout!", false, Outcome::kExpired},
        {"enhance:1: Overload! 1 skip.", false, Outcome::kRefusedOverload},
        {"enhance:1: Tasks is not empty! enhance(1) skip!", false, Outcome::kRefusedBusy},
        {"enhance:1: Invalid input: 1", false, Outcome::kRefusedInvalid},
        {"isReady:1: Retry count:0", false, Outcome::kRefusedNotReady},
        {"getReady:1: mAlgorithm.init() failed!", false, Outcome::kRefusedNotReady},
        {"isUnhealthy:1: monitor UNHEALTHY ID:1!", false, Outcome::kRefusedUnhealthy},
        {"other:1: nothing of interest", false, Outcome::kRefusedUnknown},
        {"other:1: nothing of interest", true, Outcome::kEnhanced},
    };
    for (const auto& c : cases) {
        EngineLog log;
        log.note(kEngine, c.message, false, true);
        EXPECT_EQ(log.outcome(c.isChanged), c.outcome) << c.message;
        EXPECT_EQ(log.isExpired(), c.outcome == Outcome::kExpired) << c.message;
        log.beginFrame();
        EXPECT_FALSE(log.isExpired()) << "the next frame starts afresh";
    }
    EngineLog log;
    log.note(kEngine, cases[3].message, true, false);
    EXPECT_FALSE(log.isExpired()) << "another thread's frame";
}

TEST(PlayerTest, RemembersWhatTheLogSaysOnce) {
    EngineLog log;
    const auto note = [&](const std::string& text) { log.note(kEngine, text, true, true); };
    // Between the closes of its intervals the monitor refuses without a message.
    for (const std::string recovery : {"restore:1 ID:1.", "healthy ID:1."}) {
        note("isUnhealthy:1: monitor UNHEALTHY:1 ID:1!");
        note("isUnhealthy:1: monitor restore:0 ID:1.");
        EXPECT_EQ(log.outcome(false), Outcome::kRefusedUnhealthy);
        note("isUnhealthy:1: monitor " + recovery);
        EXPECT_EQ(log.outcome(false), Outcome::kRefusedUnknown) << recovery;
    }
    note("getConfig:1: enable:1 timeout:{ abort:41ms overload:32ms tolerance:5 }");
    EXPECT_EQ(log.state().limits->abortMs, 41);
    EXPECT_EQ(log.state().limits->overloadMs, 32);
    note("doEnhance:1: mAlgorithm.enhance(data:{ id=7b3f idx=3 }) failed! Used 41ms");
    EXPECT_EQ(log.state().lastCompleted, 3U);
    for (const std::string condition : {"FPS", "RECT"}) {
        const std::string text = "updateEnhance:1: mIsEnhance[EN_COND_" + condition;
        note(text + "]:0 mEnhanceCount:1 for /bin/player. Because it is 60");
        EXPECT_NE(log.whyNotNeeded().find(", it is 60"), std::string::npos) << condition;
        note(text + "]:1 mEnhanceCount:1 for /bin/player. Because it is 25");
        EXPECT_EQ(log.whyNotNeeded(), "switched off by the service");
    }
}

TEST(PlayerTest, KeepsExpiredPlanesUntilALaterFrameHasCompleted) {
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

TEST(PlayerTest, AFullDiskIsAFailureOfEachFileAndAMissingGnuplotIsNone) {
    Frame frame(96, 80);
    Comparison comparison;
    std::fill(frame.y(), frame.y() + frame.bytes(), uint8_t{60});
    comparison.before(frame);
    std::fill(frame.y(), frame.y() + frame.lumaBytes(), uint8_t{180});
    ASSERT_TRUE(comparison.after(frame));
    RunResult run;
    run.add({Outcome::kExpired, 40.25F});
    run.add({Outcome::kNotNeeded, 0});
    run.seconds = 0.1;
    const fs::path folder = ownFolder() / "it's \"odd\", [really]";
    prepareOutput(folder);
    std::ostringstream text;
    EXPECT_EQ(writeReport(folder, run, comparison, text), Strings());
    std::ostringstream csv;
    csv << std::ifstream(folder / "frames.csv").rdbuf();
    EXPECT_EQ(csv.str(), "index,outcome,milliseconds\n0,expired,40.250\n1,not_needed,\n");
    for (const char* name : {"frames.csv", "before_after.png", "latency.png"}) {
        prepareOutput(folder);
        fs::create_symlink("/dev/full", folder / name);
        const Strings failures = writeReport(folder, run, comparison, text);
        ASSERT_FALSE(failures.empty()) << name;
        EXPECT_EQ(failures.front().rfind("cannot write '" + (folder / name).string(), 0), 0U);
    }
    setenv("PATH", ownFolder().c_str(), 1);
    EXPECT_EQ(writeReport(folder, run, comparison, text), Strings());
    EXPECT_NE(text.str().find("No latency.png: gnuplot is not installed\n"), std::string::npos);
}

std::string numbers(const std::vector<uint32_t>& values) {
    return std::string(reinterpret_cast<const char*>(values.data()), values.size() * 4);
}

/** A file of ten uncompressed pictures of vertical bars, cut short by some bytes. */
std::string makeVideo(size_t missing) {
    constexpr uint32_t kWidth = 64;
    constexpr uint32_t kHeight = 48;
    std::string picture(kWidth * kHeight * 3 / 2, '\x80');
    for (size_t bar = 0; bar < kWidth * kHeight; bar += 16) {
        picture.replace(bar, 8, 8, '\x40');
    }
    std::string ivf =
        "DKIF" + numbers({32 << 16}) + "I420" + numbers({kHeight << 16 | kWidth, 25, 1, 10, 0});
    for (uint32_t i = 0; i < 10; ++i) {
        ivf += numbers({kWidth * kHeight * 3 / 2, i, 0}) + picture;
    }
    const fs::path path = ownFolder() / ("video" + std::to_string(missing));
    std::ofstream(path, std::ios::binary) << ivf.substr(0, ivf.size() - missing);
    return path;
}

TEST(PlayerTest, TellsByExitCodeAndOneLineWhatWasWrong) {
    const std::string whole = makeVideo(0);
    const std::string output = ownFolder() / "out";
    const std::string broken = ownFolder() / "broken.avi";
    std::ofstream(broken) << "RIFF is how it begins, and that is all";
    EXPECT_EQ(ProgramRun(kPlayer, {whole, "--fps", "max", "-o", output}).error, "");
    const ProgramRun truncated(kPlayer, {makeVideo(100), "--fps", "max", "-o", output});
    EXPECT_EQ(truncated.code, 0);
    EXPECT_NE(truncated.error.find("is incomplete: it ends after 9 frames"), std::string::npos);

    ProgramRun(kPlayer, {broken}).expectFailure(1, "cannot open '" + broken + "'");
    ProgramRun(kPlayer, {ownFolder()}).expectFailure(1, "cannot open '");
    ProgramRun(kPlayer, {whole, "-o", "/dev/null/out"}).expectFailure(1, "'/dev/null/out'");
    for (const char* fps : {"0", "30x", "nan"}) {
        ProgramRun(kPlayer, {whole, "--fps", fps}).expectFailure(2, "is neither 'max' nor a rate");
    }
}

TEST(PlayerTest, PlaysOnWhenTheServiceIsKilledAndEndsAtASignal) {
    Service service(words("--min-width 1 --min-height 1 --abort-ms 60000"));
    ChildProcess player(kPlayer, {makeVideo(0), "--loop", "-o", ownFolder() / "out"},
                        {"LD_LIBRARY_PATH=" + (kDemo / "processing").string()});
    EXPECT_NE(player.readLine()->find("1 frames: 1 enhanced"), std::string::npos);
    service.kill();
    EXPECT_TRUE(player.readLine() && player.readLine());
    player.kill(SIGINT);
    EXPECT_EQ(player.wait(), 0);
    EXPECT_TRUE(player.waitForLine("Picture: " + (ownFolder() / "out/before_after.png").string()));
}

}  // namespace
