// SPDX-License-Identifier: Apache-2.0
// The configuration that the service hands to a video engine, as the engine reads it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "tools/support/JsonText.h"

struct ConfigurationValue {
    const char* name;
    const char* help;
};

/** The values of a configuration, in wire order. */
inline constexpr ConfigurationValue kConfigurationValues[] = {
    {"enable", "whether enhancement is switched on: 1 or 0"},
    {"min_width", "smallest video size that may be enhanced: width in pixels"},
    {"min_height", "smallest video size that may be enhanced: height in pixels"},
    {"max_width", "largest video size that may be enhanced: width in pixels"},
    {"max_height", "largest video size that may be enhanced: height in pixels"},
    {"max_fps", "highest frame rate that may be enhanced"},
    {"monitor_frames", "health monitor: frames that close one measuring interval"},
    {"monitor_tolerance", "health monitor: intervals in a row that may run too fast"},
    {"monitor_restore", "health monitor: calm intervals that lift its verdict; -1 for never"},
    {"abort_ms", "longest wait for one frame in milliseconds"},
    {"overload_ms", "processing time in milliseconds that counts as a slow frame"},
    {"overload_count", "slow frames that make an overload"},
    {"overload_period_ms", "period in milliseconds within which they make it"},
};
inline constexpr size_t kConfigurationSize = std::size(kConfigurationValues);

struct EngineConfiguration {
    /** What the engine works with, by name; null when it refuses the configuration. */
    Json values;
    /** What it refuses or replaces: one line each, with the name of the rule. */
    std::vector<std::string> findings;
};

/** What an engine makes of the values that a service sends, of which there may be too few. */
EngineConfiguration engineConfiguration(const std::vector<int32_t>& sent);

/** The values by their names. */
Json namedConfiguration(const std::vector<int32_t>& values);
