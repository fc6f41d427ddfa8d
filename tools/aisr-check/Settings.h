// SPDX-License-Identifier: Apache-2.0
// What the checks are told on the command line.
#pragma once

#include <string>

namespace checker {

struct Settings {
    std::string library;     /**< Absolute path of the library under test. */
    int overloadMs = 33;     /**< From this time on the engine counts a frame as slow. */
    int abortMs = 40;        /**< The engine's caller waits no longer for a frame. */
    int fps = 30;            /**< Rate of the streams. */
    double seconds = 5;      /**< Length of the soak; 0 leaves it out. */
    double hangSeconds = 10; /**< An entry that takes longer hangs. */
    bool isQuick = false;    /**< Fewer frames and shorter streams. */
    bool isVerbose = false;  /**< Lets the library's and the engine's output through. */

    /** `usual`, or `quick` when a quick run is wanted. */
    int count(int usual, int quick) const { return isQuick ? quick : usual; }
};

}  // namespace checker
