// SPDX-License-Identifier: Apache-2.0
// The player as a program, beside the sample service and with the sample processing library.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <fstream>

#include "ProgramRun.h"

namespace {

namespace fs = std::filesystem;

const std::string kPlayer = kDemo / "player/displayengine-player";
const std::string kSample = "LD_LIBRARY_PATH=" + (kDemo / "processing").string();

// Neither GLib nor GStreamer frees all it has at the end of a program.
[[maybe_unused]] const int kNoLeakCheck = setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
const std::string kAnySize = "--min-height 1 --min-width 1 ";

// Of this program alone, and removed at its end.
fs::path ownFolder() {
    return std::getenv("DISPLAYENGINE_RUNTIME_DIR");
}

/** A file of what a source of GStreamer gives. */
std::string make(const std::string& name, const std::string& pipeline) {
    std::string path = ownFolder() / name;
    const ProgramRun run("gst-launch-1.0",
                         words("-q " + pipeline + " ! filesink location=" + path));
    EXPECT_EQ(run.code, 0) << run.error;
    return path;
}

/** Ten frames in a file, of which a part is kept. */
std::string makeVideo(const std::string& rate = "25/1", const std::string& muxer = "avimux",
                      double kept = 1) {
    const std::string source =
        "videotestsrc num-buffers=10 ! video/x-raw,width=64,height=48,framerate=";
    std::string path = make(muxer + std::to_string(kept), source + rate + " ! jpegenc ! " + muxer);
    fs::resize_file(path, static_cast<uintmax_t>(kept * static_cast<double>(fs::file_size(path))));
    return path;
}

/** The player's run; its files are in the folder `out`. */
ProgramRun play(const std::string& video, const std::string& options,
                const Strings& environment = {kSample}) {
    Strings arguments = words(options + " --output " + (ownFolder() / "out").string());
    arguments.push_back(video);
    return {kPlayer, arguments, environment};
}

/** The lines of the table of frames. */
Strings rows() {
    std::ifstream table(ownFolder() / "out/frames.csv");
    Strings result;
    for (std::string row; std::getline(table, row);) {
        result.push_back(row);
    }
    return result;
}

void expectText(const std::string& text, const std::string& part) {
    EXPECT_NE(text.find(part), std::string::npos) << "no " << part << " in " << text;
}

const std::string kSlow = "AISR_SAMPLE_SLOW_MS=";
const std::string kCalm = "--abort-ms 60000 --overload-ms 60000 ";
const std::string kFast = kCalm + "--max-fps 3 ";
const std::string kQuick = kSlow + "0";
const struct {
    std::string service;  // its options; empty for no service
    std::string environment;
    std::string outcomes;
    std::string reason;  // on the lasting lines
} kOutcomes[] = {
    // The rate is the video's, however fast it is played.
    {kFast, kQuick, "enhanced\":10", ""},
    {kCalm + "--max-fps 2", kQuick, "not-offered\":10", "the frame rate is above"},
    {kCalm + "--max-width 48 --max-height 48", kQuick, "not-offered\":10", "the size is outside"},
    {kCalm + "--supported 0", kQuick, "not-offered\":10", "does not"},
    {"", kQuick, "not-offered\":10", "no display engine service"},
    {kCalm, "LD_LIBRARY_PATH=", "refused-not-ready\":10",
     "\naisr-check LIBRARY tells what is wrong"},
    {"--abort-ms 1", kSlow + "300", "expired\":", "0 expired: doEnhance"},
    {"--abort-ms 60000 --overload-count 2", kSlow + "40", "refused-overload\":8", "Overload!"},
    {kFast + "--monitor-frames 4 --monitor-tolerance 0", kQuick, "refused-unhealthy\":", "UNHEAL"},
};

TEST(PlayerTest, TellsTheOutcomesApart) {
    const std::string video = makeVideo("3/1");
    for (const auto& c : kOutcomes) {
        SCOPED_TRACE(c.outcomes);
        std::optional<Service> service;
        if (!c.service.empty()) {
            service.emplace(words(kAnySize + c.service));
        }
        const ProgramRun run = play(video, "--json --fps max", {kSample, c.environment});
        EXPECT_EQ(run.code, 0);
        expectText(run.output, '"' + c.outcomes);
        expectText(run.error, c.reason);
        EXPECT_EQ(rows().size(), 11U);
        EXPECT_EQ(rows().front(), "frame,seconds,outcome,milliseconds,reason");
    }
}

TEST(PlayerTest, TellsByExitCodeAndOneLineWhatWasWrong) {
    const std::string whole = makeVideo();
    const std::string cut = makeVideo("25/1", "avimux", 0.995);  // within the index
    const std::string half = makeVideo("25/1", "matroskamux", 0.5);
    const std::string headless = makeVideo("25/1", "qtmux", 0.5);
    const std::string damaged = ownFolder() / "damaged.avi";
    fs::copy_file(whole, damaged);
    std::fstream(damaged).seekp(static_cast<long>(fs::file_size(damaged) / 3))
        << std::string(fs::file_size(damaged) / 3, 'x');
    const std::string broken = ownFolder() / "broken.avi";
    std::ofstream(broken) << "RIFF is how it begins, and that is all";
    const std::string sound = make("sound.wav", "audiotestsrc num-buffers=9 ! wavenc");

    EXPECT_EQ(play(whole, "--fps max").error, "");
    for (const auto& [video, warning] :
         {std::pair(cut, "incomplete"), {half, "incomplete"}, {damaged, "damaged"}}) {
        const ProgramRun run = play(video, "--fps max");
        EXPECT_EQ(run.code, 0);
        expectText(run.error, "'" + video + "' is " + warning + ": ");
    }

    play(headless, "").expectFailure(1, "seems damaged or cut: ");
    play(broken, "").expectFailure(1, "cannot play '" + broken + "'");
    play(sound, "").expectFailure(1, "cannot play '" + sound + "': there is no video in it");
    play(ownFolder() / "absent", "").expectFailure(1, "No such file");
    ProgramRun(kPlayer, {whole, "-o", "/dev/null/out"}).expectFailure(1, "'/dev/null/out'");
    play(whole, "--write /dev/null/out.mkv").expectFailure(1, "cannot write '/dev/null/out.mkv'");
    for (const char* fps : {"0", "30x", "nan"}) {
        play(whole, std::string("--fps ") + fps).expectFailure(2, "is neither 'max' nor a rate");
    }
    play(whole, "--write out.avi").expectFailure(2, "'out.avi' is no .mkv or .mp4");
    play(whole, "--write out.mkv --loop").expectFailure(2, "excludes");
}

TEST(PlayerTest, WritesAVideoThatPlaysFrameByFrameAtAnyPace) {
    const std::string video = makeVideo("100/1");
    for (const std::string name : {"written.mkv", "written.mp4"}) {
        const std::string path = ownFolder() / name;
        EXPECT_EQ(play(video, "--fps 10 --write " + path).code, 0);
        // The turn of a frame comes when the one before it has been shown; never too early.
        EXPECT_GT(std::stod(rows().back().substr(2)), 0.7) << rows().back();
        const ProgramRun again = play(path, "--fps max --json");
        expectText(again.output, "\"frames\":10,");
        expectText(again.output, "\"damage\":\"\"");
    }
}

TEST(PlayerTest, AFullDiskIsAFailureOfEachFileAndAMissingGnuplotIsNone) {
    Service service(words(kAnySize + "--abort-ms 60000"));
    const std::string video =
        make("video",
             "videotestsrc num-buffers=90 ! video/x-raw,width=320,height=240 ! jpegenc ! avimux");
    const fs::path folder = ownFolder() / R"(it's "odd", [really])";
    // No file may grow beyond two blocks.
    const ProgramRun full("/bin/sh",
                          {"-c", R"(trap '' XFSZ; ulimit -f 2; exec "$0" "$@")", kPlayer, video,
                           "--fps", "max", "-o", folder},
                          {kSample});
    EXPECT_EQ(full.code, 1);
    for (const char* name : {"frames.csv", "before_after.png", "latency.png"}) {
        expectText(full.error, "cannot write '" + (folder / name).string());
    }
    const ProgramRun run = play(video, "--seconds 0.2", {kSample, "PATH=" + ownFolder().string()});
    EXPECT_EQ(run.code, 0);
    expectText(run.output, "No latency.png: gnuplot is not installed");
}

TEST(PlayerTest, PlaysOnWhenTheServiceIsKilledAndEndsAtASignal) {
    Service service(words(kAnySize + "--abort-ms 60000"));
    ChildProcess player(kPlayer, {makeVideo(), "--loop", "-o", ownFolder() / "out"}, {kSample});
    expectText(player.readLine().value_or(""), "1 frames: 1 enhanced");
    service.kill();
    for (const char* part : {" per second, latency ", " per second, latency "}) {
        expectText(player.readLine().value_or(""), part);
    }
    player.kill(SIGINT);
    EXPECT_EQ(player.wait(), 0);
    EXPECT_TRUE(player.waitForLine("Wrote before_after.png: " +
                                   (ownFolder() / "out/before_after.png").string()));
}

}  // namespace
