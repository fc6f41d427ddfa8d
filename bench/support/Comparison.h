// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "support/Table.h"

namespace bench {

/** A figure beside its floor or peer. Both are names of benchmarks of this program. */
struct Comparison {
    /** What the ratio of the medians has to be. */
    enum class Wanted { kNothing, kAtMost, kLess };

    std::string what;       /**< For the reader: "a frame through the engine". */
    std::string subject;    /**< Name of its benchmark. */
    std::string besideWhat; /**< "bare futex hand-off and back" */
    std::string beside;     /**< Name of the benchmark that it is measured against. */
    Wanted wanted = Wanted::kNothing;
    double limit = 1.0; /**< Ratio of the medians. */
};

/**
 * Runs the program's benchmarks, with their repetitions interleaved at random, and delivers one row
 * for each comparison (see Table.h). Takes Google Benchmark's options beside `--json FILE`.
 *
 * The ratio is that of the two medians over the repetitions. The spread is the smallest and largest
 * ratio of two repetitions with the same number. A benchmark that reported an error fails its rows.
 */
int runComparisons(const std::string& title, const std::vector<Comparison>& comparisons,
                   const std::vector<std::string>& notes, int argc, char** argv);

}  // namespace bench
