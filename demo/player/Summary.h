// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "EngineLog.h"
#include "Outcome.h"

namespace player {

/** What became of one frame: a row of frames.csv. */
struct FrameRecord {
    Outcome outcome;
    float milliseconds; /**< Time that the call took; 0 for a frame that was not offered. */
};

/** The result of a run of the player. */
struct RunResult {
    void add(const FrameRecord& frame);
    size_t count(Outcome outcome) const { return counts[static_cast<size_t>(outcome)]; }
    size_t offered() const { return frames.size() - count(Outcome::kNotNeeded); }

    std::vector<FrameRecord> frames; /**< Changed by `add` only, like the counts. */
    OutcomeCounts counts{};
    double seconds = 0;                      /**< From the first frame to the last one's end. */
    std::map<std::string, size_t> notNeeded; /**< Frames that were not offered, by reason. */
    std::optional<EngineLog::Limits> limits; /**< None when the engine never came up. */
};

/** Writes the summary of a run for a reader. */
void printSummary(std::ostream& out, const RunResult& result);

}  // namespace player
