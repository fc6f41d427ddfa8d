// SPDX-License-Identifier: Apache-2.0
// A picture of the times of each size.
#pragma once

#include <string>
#include <vector>

#include "Report.h"
#include "Settings.h"

namespace checker {

/** Draws a box for each size beside both limits, by gnuplot. What went wrong, or an empty text. */
std::string drawTimes(const std::vector<SizeTimes>& times, const Settings& settings,
                      const std::string& picture);

}  // namespace checker
