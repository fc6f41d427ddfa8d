// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <ostream>
#include <string>

#include "Comparison.h"
#include "Summary.h"

namespace player {

/**
 * Makes the output folder and removes the files of an earlier run from it, so that none is taken
 * for this one's. Throws std::runtime_error.
 */
void prepareOutput(const std::filesystem::path& folder);

/**
 * Writes frames.csv, before_after.png and latency.png into the folder, and for each one a line to
 * `out` that names it or says why it is missing. Returns false when a file could not be written; a
 * missing gnuplot, or nothing to show, is no such case.
 */
bool writeReport(const std::filesystem::path& folder, const RunResult& result,
                 const Comparison& comparison, std::ostream& out);

/** Text of frames.csv. */
void writeCsv(std::ostream& out, const std::vector<FrameRecord>& frames);

/** The commands for gnuplot that draw `image` from the file `csv`. */
std::string latencyPlot(const std::string& csv, const std::string& image, const RunResult& result);

}  // namespace player
