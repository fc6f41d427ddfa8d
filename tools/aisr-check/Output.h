// SPDX-License-Identifier: Apache-2.0
// What the tool writes: a line for each check, with a progress line and colours on a terminal only;
// or a JSON document; and a picture.
#pragma once

#include "CheckProcess.h"

namespace checker {

/** The check is about to begin, as number `number` of `count`. */
void printProgress(const Check& check, size_t number, size_t count);
void printLine(const Outcome& outcome);
/** The table of times and the summary. */
void printSummary(const std::vector<Outcome>& outcomes, const Settings& settings);
void printJson(const std::vector<Outcome>& outcomes, const Settings& settings);
/** All checks and their rules. */
void printList();

/**
 * Draws a box for each size beside both limits, by gnuplot. What went wrong, or an empty text.
 */
std::string drawTimes(const std::vector<Outcome>& outcomes, const Settings& settings,
                      const std::string& picture);

}  // namespace checker
