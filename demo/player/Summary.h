// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "EngineLog.h"
#include "Outcome.h"

namespace player {

/** Spread of a set of times in milliseconds. */
struct LatencyStats {
    size_t count = 0;
    float median = 0;
    float p99 = 0;
    float largest = 0;
};

/** Nearest-rank percentiles: each is a time that really occurred. All 0 for no times. */
LatencyStats latencyStats(std::vector<float> milliseconds);

/** What a run of the player amounts to. */
struct RunResult {
    std::vector<FrameRecord> frames;
    double seconds = 0;                      /**< From the first frame to the last one's end. */
    std::map<std::string, size_t> notNeeded; /**< Frames that were not offered, by reason. */
    std::optional<EngineLog::Limits> limits; /**< None when the engine never came up. */
};

/** Counts of a run. */
class Tally {
public:
    explicit Tally(const std::vector<FrameRecord>& frames);

    size_t of(Outcome outcome) const { return mCounts[static_cast<size_t>(outcome)]; }
    size_t offered() const { return mOffered; }

    /** Times of the frames that reached the worker; a refusal takes next to none. */
    const LatencyStats& latency() const { return mLatency; }

private:
    std::array<size_t, kOutcomes> mCounts{};
    size_t mOffered = 0;
    LatencyStats mLatency;
};

/** Writes the summary of a run for a reader. */
void printSummary(std::ostream& out, const RunResult& result);

}  // namespace player
