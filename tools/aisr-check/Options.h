// SPDX-License-Identifier: Apache-2.0
// Command line of aisr-check.
#pragma once

#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "Check.h"

namespace checker {

/** Exit codes of the program. */
enum ExitCode : int {
    kPassed = 0,
    kFailed = 1,   /**< A check has failed. */
    kUnusable = 2, /**< Wrong usage, or no such file. */
};

struct Options {
    Settings settings;
    std::regex filter{""}; /**< Names of the checks to run; matches anywhere. */
    bool isList = false;
    bool isJson = false;
    std::string picture; /**< File to draw the times to; empty for none. */
    std::string wrapper; /**< Words that start the checks' processes. */
    std::string check;   /**< Set in the process of a check. */
};

/**
 * Reads the command line. Returns an exit code when the program is to end here: 0 after the help
 * text or the version, 2 after one line on standard error that says what is wrong.
 */
std::optional<int> parseOptions(int argc, const char* const* argv, Options* options);

/** One line on standard error; returns `code`. */
int complain(ExitCode code, const std::string& reason);

}  // namespace checker
