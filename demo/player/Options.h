// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

namespace player {

struct Options {
    std::string video;
    /** Frames per second to play; 0 for as fast as possible, none for the video's own pace. */
    std::optional<double> fps;
    /** Length of the run in seconds; none for the whole video. */
    std::optional<double> seconds;
    bool isLooping = false;
    bool isVerbose = false;
    bool isQuiet = false;
    bool isJson = false;
    std::string output = "out";
    std::string write; /**< File for the played video, .mkv or .mp4; empty for none. */
};

/**
 * Reads the command line. Returns an exit code when the program is to end here: 0 after the help
 * text on standard output, 2 after one line on standard error that says what is wrong.
 */
std::optional<int> parseOptions(int argc, const char* const* argv, Options& options);

}  // namespace player
