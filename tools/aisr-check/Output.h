// SPDX-License-Identifier: Apache-2.0
// What the tool writes to standard output.
#pragma once

#include <string>
#include <vector>

#include "CheckProcess.h"

namespace checker {

/** Writes a line for each check, with a progress line and colours on a terminal only. */
class Output {
public:
    Output(const Settings& settings, bool isJson);

    /** A check is about to begin, as number `number` of `count`. */
    void begin(const Check& check, size_t number, size_t count);
    void end(const Outcome& outcome);
    /** The table of times and the summary. */
    void summarise(const std::vector<Outcome>& outcomes);

    /** All checks and their rules. */
    static void list();

private:
    const Settings mSettings;
    const bool mIsJson;
    const bool mIsTerminal;
    const bool mIsColoured;
};

}  // namespace checker
