// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

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
 * `out` that names it, or says why there is nothing to show or that gnuplot is missing. Returns a
 * text for each file that could not be written; nothing of such a file is left.
 */
std::vector<std::string> writeReport(const std::filesystem::path& folder, const RunResult& result,
                                     const Comparison& comparison, std::ostream& out);

}  // namespace player
