// SPDX-License-Identifier: Apache-2.0
#include "Options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace player {
namespace {

constexpr int kUsageError = 2;
constexpr double kLongestRun = 24 * 3600;

/** A pace: 0 for "max". Throws CLI::ValidationError. */
double parseFps(const std::string& text) {
    if (text == "max") {
        return 0;
    }
    char* end = nullptr;
    const double fps = std::strtod(text.c_str(), &end);
    if (*end == '\0' && fps >= 0.1 && fps <= 1000) {
        return fps;
    }
    throw CLI::ValidationError("--fps",
                               "'" + text + "' is neither 'max' nor a rate from 0.1 to 1000");
}

/** Why a file of that name cannot be written; empty if it can. */
std::string isVideoName(const std::string& name) {
    const auto extension = std::filesystem::path(name).extension();
    return extension == ".mkv" || extension == ".mp4" ? "" : "'" + name + "' is no .mkv or .mp4";
}

}  // namespace

std::optional<int> parseOptions(int argc, const char* const* argv, Options& options) {
    CLI::App app(
        "Plays a video through the display engine: decodes it, offers every frame for enhancement\n"
        "as a media client would, and reports what became of each. Nothing is shown on a screen;\n"
        "the output folder gets frames.csv, before_after.png and latency.png.",
        "displayengine-player");
    app.footer(
        "Exit code: 0 when frames were played, also of a video that is damaged or ends early (a\n"
        "warning on standard error says so); 1 for a video that cannot be played, for none "
        "played,\n"
        "or for a file that cannot be written; 2 for wrong usage.");
    app.add_option("VIDEO", options.video, "video file, of any format that GStreamer decodes")
        ->required();
    app.add_option_function<std::string>(
           "--fps", [&options](const std::string& text) { options.fps = parseFps(text); },
           "frames to play in a second, or 'max'; the video's own pace if not given. The frame "
           "rate announced to the engine stays the video's")
        ->type_name("N|max");
    app.add_option("--seconds", options.seconds, "end after that many seconds")
        ->check(CLI::Range(0.01, kLongestRun));
    CLI::Option* const loop =
        app.add_flag("--loop", options.isLooping, "start the video again at its end");
    app.add_option("-o,--output", options.output, "folder for the files of the report")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_option("--write", options.write, "write the played video to this .mkv or .mp4 file")
        ->type_name("FILE")
        ->check(isVideoName)
        ->excludes(loop);
    app.add_flag("--json", options.isJson,
                 "print the summary as one JSON document; all other text goes to standard error");
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
    return std::nullopt;
}

}  // namespace player
