// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <ostream>
#include <string>
#include <vector>

namespace player {

/** What became of one frame: a row of frames.csv. */
struct FrameRecord {
    double seconds = 0;      /**< From the first frame's turn to this one's. */
    std::string outcome;     /**< The element's word; "enhanced" for "processed". */
    std::string reason;      /**< Why it was not offered, in one word; empty if it was. */
    std::string text;        /**< Why it was not enhanced, in words; empty if it was. */
    double milliseconds = 0; /**< Length of the engine's call; 0 when it was not made. */
};

/** The result of a run of the player. */
struct RunResult {
    void add(const FrameRecord& frame);
    /** Frames of the outcomes that begin with `prefix`; no outcome begins with another one. */
    size_t count(const std::string& prefix) const;
    size_t offered() const { return frames - count("not-offered"); }

    size_t frames = 0;
    double seconds = 0; /**< From the first frame's turn to the end. */
    std::map<std::string, size_t> counts{{"enhanced", 0}}; /**< By outcome. */
    std::map<std::string, size_t> notWanted; /**< Frames that were not offered, by reason. */
    std::vector<float> latencies; /**< Milliseconds of the frames that reached the library. */
    int abortMs = 0;              /**< The engine's limits; 0 when it never came up. */
    int overloadMs = 0;
};

/** Writes the summary of a run for a reader. */
void printSummary(std::ostream& out, const RunResult& result);

/** The same for a program. */
nlohmann::json summaryAsJson(const RunResult& result);

}  // namespace player
