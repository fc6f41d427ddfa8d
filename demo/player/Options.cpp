// SPDX-License-Identifier: Apache-2.0
#include "Options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>

namespace player {
namespace {

constexpr int kUsageError = 2;
constexpr double kLowestFps = 0.1;
constexpr double kHighestFps = 1000;
constexpr double kLongestRun = 24 * 3600;

/** A pace: 0 for "max", none for what is neither that nor a rate. */
std::optional<double> parseFps(const std::string& text) {
    if (text == "max") {
        return 0;
    }
    char* end = nullptr;
    const double fps = std::strtod(text.c_str(), &end);
    const bool isRate = *end == '\0' && fps >= kLowestFps && fps <= kHighestFps;
    return isRate ? std::optional<double>(fps) : std::nullopt;
}

std::string checkFps(const std::string& text) {
    return parseFps(text) ? std::string()
                          : "'" + text + "' is neither 'max' nor a rate from 0.1 to 1000";
}

}  // namespace

std::optional<int> parseOptions(int argc, const char* const* argv, Options& options) {
    CLI::App app(
        "Plays a video through the display engine: decodes it, offers every frame for enhancement\n"
        "as a media client would, and reports what became of each. Nothing is shown on a screen;\n"
        "the output folder gets frames.csv, before_after.png and latency.png.",
        "displayengine-player");
    app.add_option("VIDEO", options.video, "video file, of any format that FFmpeg decodes")
        ->required();
    std::string fps;
    app.add_option("--fps", fps,
                   "pace of the frames, or 'max'; the video's own if not given. The frame rate "
                   "announced to the engine stays the video's")
        ->type_name("N|max")
        ->check(checkFps);
    app.add_option("--seconds", options.seconds, "end after that many seconds")
        ->check(CLI::Range(0.01, kLongestRun));
    app.add_flag("--loop", options.isLooping, "start the video again at its end");
    app.add_option("-o,--output", options.output, "folder for the files of the report")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_flag("-v,--verbose", options.isVerbose, "show the engine's log on standard error");
    app.add_flag("-q,--quiet", options.isQuiet, "no progress line");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        std::fprintf(stderr, "displayengine-player: %s (--help lists the options)\n", error.what());
        return kUsageError;
    }
    if (!fps.empty()) {
        options.fps = parseFps(fps);
    }
    return std::nullopt;
}

}  // namespace player
