// SPDX-License-Identifier: Apache-2.0
// Command line of the sample service.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "tools/support/EngineConfiguration.h"

namespace sample {

struct Options {
    /** Answer to the question whether video enhancement is supported. */
    int32_t supported = 1;
    /** Configuration in wire order; the first value is the enable state the service starts with. */
    std::array<int32_t, kConfigurationSize> configuration = {1, 512, 512, 720, 1280, 30,   38,
                                                             2, 3,   40,  33,  5,    10000};
    /** How many values of the configuration are sent; fewer than all imitate an older service. */
    size_t configurationSent = kConfigurationSize;
    /** Panel name, at most 254 bytes. */
    std::string panelName = "PANEL01";
    /** Numbers of features that the display is to lack. */
    std::set<int32_t> missing;
    /** Changes of the enable state, by the time from the moment the service is ready. */
    std::multimap<std::chrono::milliseconds, bool> toggles;
};

/**
 * Parses the command line into `options`. Prints the help text to standard output or one line
 * saying what is wrong to standard error, and then returns the exit code to end the program with;
 * returns nothing when the service is to run.
 */
std::optional<int> parseOptions(int argc, const char* const* argv, Options* options);

}  // namespace sample
