// SPDX-License-Identifier: Apache-2.0
// Command line of dectl.
#pragma once

#include <optional>

#include "Session.h"

namespace control {

struct Options {
    bool isJson = false;
    bool isVerbose = false;
    double timeout = 5; /**< Seconds. */
    Command command = nullptr;
    Arguments arguments;
};

/**
 * Reads the command line. Returns an exit code when the program is to end here: 0 after the help
 * text on standard output, 2 after one line on standard error that says what is wrong.
 */
std::optional<int> parseOptions(int argc, const char* const* argv, Options* options);

}  // namespace control
