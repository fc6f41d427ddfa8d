// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <string>

namespace player {

/**
 * Standard output while the video plays: a progress line that is rewritten in place on a terminal
 * and repeated now and then elsewhere, and lasting lines in between.
 */
class Console {
public:
    explicit Console(bool isQuiet);

    /** Whether it is time for the progress line again. */
    bool wantsProgress(std::chrono::steady_clock::time_point now) const;

    void progress(const std::string& text, std::chrono::steady_clock::time_point now);
    void line(const std::string& text);
    /** Ends the progress line, if one stands there. */
    void finish();

private:
    const bool mIsQuiet;
    const bool mIsTerminal;
    bool mIsLineOpen = false;
    std::chrono::steady_clock::time_point mNext{};
};

}  // namespace player
