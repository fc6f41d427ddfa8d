// SPDX-License-Identifier: Apache-2.0
// Command line of the sample service.
#pragma once

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

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

inline constexpr int kUsageError = 2;
inline constexpr double kLongestDelaySeconds = 86400;

/** Parses "SECONDS:on" or "SECONDS:off"; throws CLI::ValidationError. */
inline std::pair<std::chrono::milliseconds, bool> parseToggle(const std::string& text) {
    char* end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    const std::string state = end;
    const bool isSound = end != text.c_str() && seconds >= 0 && seconds <= kLongestDelaySeconds;
    if (!isSound || (state != ":on" && state != ":off")) {
        throw CLI::ValidationError(
            "--toggle", "'" + text + "' is not SECONDS:on or SECONDS:off (0 to 86400 s)");
    }
    return {std::chrono::milliseconds(std::llround(seconds * 1000)), state == ":on"};
}

inline void addOptions(CLI::App* app, Options* options) {
    app->add_option("--supported", options->supported,
                    "answer to whether video enhancement is supported")
        ->capture_default_str();
    app->add_option_function<std::string>(
           "--enable",
           [options](const std::string& state) { options->configuration[0] = state == "on"; },
           "enable state to start with; on if not given")
        ->check(CLI::IsMember({"on", "off"}));
    for (size_t i = 1; i < kConfigurationSize; ++i) {
        std::string name = std::string("--") + kConfigurationValues[i].name;
        std::replace(name.begin(), name.end(), '_', '-');
        app->add_option(name, options->configuration[i], kConfigurationValues[i].help)
            ->capture_default_str();
    }
    app->add_option("--short-config", options->configurationSent,
                    "send only the first N values of the configuration")
        ->check(CLI::Range(size_t{0}, kConfigurationSize))
        ->type_name("N")
        ->capture_default_str();
    app->add_option("--panel-name", options->panelName, "name of the display panel")
        ->check([](const std::string& name) {
            return name.size() < 255 ? std::string() : "a panel name has at most 254 bytes";
        })
        ->capture_default_str();
    app->add_option("--without", options->missing,
                    "number of a feature that the display is to lack; may be repeated")
        ->type_name("FEATURE")
        ->allow_extra_args(false);
    const auto addToggles = [options](const std::vector<std::string>& texts) {
        for (const std::string& text : texts) {
            options->toggles.insert(parseToggle(text));
        }
    };
    app->add_option_function<std::vector<std::string>>(
           "--toggle", addToggles,
           "send an Enable event that many seconds after the start; may be repeated")
        ->type_name("SECONDS:on|off")
        ->allow_extra_args(false);
}

/**
 * Parses the command line into `options`. Prints the help text to standard output or one line
 * saying what is wrong to standard error, and then returns the exit code to end the program with;
 * returns nothing when the service is to run.
 */
inline std::optional<int> parseOptions(int argc, const char* const* argv, Options* options) {
    CLI::App app(
        "Sample display engine service. Clients find it as \"DisplayEngineService\".\n"
        "Each transaction is reported as one line on standard output. Commands on standard input:\n"
        "  enable on|off   send an Enable event to the registered clients\n"
        "  status          print the state, as \"dectl dump\" does\n"
        "  quit            stop, as SIGTERM and SIGINT do",
        "displayengine-service");
    app.set_version_flag("--version", "displayengine-service " DISPLAYENGINE_VERSION,
                         "print the version and exit");
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return "displayengine-service: " + std::string(error.what()) +
               " (--help lists the options)\n";
    });
    addOptions(&app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kUsageError;
    }
    return std::nullopt;
}

}  // namespace sample
