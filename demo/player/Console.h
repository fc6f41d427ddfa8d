// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <ostream>
#include <string>

namespace player {

/**
 * What is shown while the video plays: a progress line that is rewritten in place on a terminal and
 * repeated every second elsewhere, and lasting lines in between.
 */
class Console {
public:
    /** Writes to standard error instead of standard output if `isStandardError`. */
    Console(bool isQuiet, bool isStandardError);
    ~Console() { finish(); }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /** Whether it is time for the progress line again. */
    bool wantsProgress(std::chrono::steady_clock::time_point now) const;

    void progress(const std::string& text, std::chrono::steady_clock::time_point now);
    void line(const std::string& text);
    /** Ends the progress line, if one stands there. */
    void finish();

private:
    std::ostream& mOut;
    const bool mIsQuiet;
    const bool mIsTerminal;
    bool mIsLineOpen = false;
    std::chrono::steady_clock::time_point mNext{};
};

}  // namespace player
