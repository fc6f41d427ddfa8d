// SPDX-License-Identifier: Apache-2.0
// What a check's process tells the tool: lines of JSON through a pipe. Any thread may report.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "SharedState.h"

namespace checker {

/** Descriptors that the tool hands to a check's process. */
constexpr int kReportDescriptor = 3;
constexpr int kStateDescriptor = 4;

/** The times of the frames of one size, in milliseconds. */
struct SizeTimes {
    FrameShape shape;
    int frames = 0; /**< Without the first. */
    double first = 0;
    double low = 0; /**< Smallest. */
    double lowerQuartile = 0;
    double median = 0;
    double upperQuartile = 0;
    double high = 0; /**< 99 % take no longer. */
    double largest = 0;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FrameShape, width, height, stride)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(SizeTimes, shape, frames, first, low, lowerQuartile, median,
                                   upperQuartile, high, largest)

/** Something worth telling of a check that has passed. */
void note(const std::string& text);
/** Something that is allowed, or that may be the machine's doing. */
void warn(const std::string& text);
/** A breach of a rule; the check goes on. */
void fail(const std::string& text);
void reportTimes(const SizeTimes& times);

/** Ends the check's process at once: the check has reported all there is. */
[[noreturn]] void stop();
/** A breach of a rule that the check cannot go on with. */
[[noreturn]] void failAndStop(const std::string& text);

/** With one decimal: "3.1". */
std::string oneDecimal(double value);

}  // namespace checker
