// SPDX-License-Identifier: Apache-2.0
// The table of checks.
#pragma once

#include <string>
#include <vector>

namespace checker {

/** What the checks are told on the command line. */
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

/** One check. It runs in a process of its own and reports by the functions of Report.h. */
struct Check {
    const char* name;        /**< "planes.bounds" */
    const char* explanation; /**< What holds when it passes. */
    const char* rule;        /**< Anchor of the makers' page. */
    void (*run)(const Settings& settings);
    /** Names of checks without which this one says nothing; skipped when one has failed. */
    const char* needs = "";
    /** The process ends by returning from main, which the engine sees, and not at once. */
    bool endsByExit = false;
};

/** All checks, each behind those it needs. */
extern const std::vector<Check> kChecks;

// In the file of the subject each.
using CheckFunction = void(const Settings& settings);
CheckFunction checkOpen, checkEntries, checkExports, checkThreadsGone, checkUnload;
CheckFunction checkInit, checkLogLevel, checkInitRepeated, checkInitThreads, checkFirstFrame,
    checkContext;
CheckFunction checkRecordsKept, checkUnknownParameters, checkStatuses;
CheckFunction checkSizes, checkSameOutput, checkBounds, checkPadding, checkPlanesAfterReturn;
CheckFunction checkCancelReturns, checkCancelEnds, checkCancelNames, checkDeinitAfterCancel;
CheckFunction checkGrowth, checkTimes;
CheckFunction checkAdapter, checkStream, checkExpiry, checkProcessExit, checkSoak;

}  // namespace checker
