// SPDX-License-Identifier: Apache-2.0
// The table of checks.
#pragma once

#include <vector>

#include "Settings.h"

namespace checker {

/** One check. It runs in a process of its own and reports by the functions of Report.h. */
struct Check {
    const char* name;        /**< "planes.bounds" */
    const char* explanation; /**< What holds when it passes. */
    const char* rule;        /**< Heading of the makers' page that has the rule, as an anchor. */
    void (*run)(const Settings& settings);
    /** Names of checks without which this one says nothing; skipped when one has failed. */
    const char* needs = "";
    /** The process ends by returning from main, which the engine sees, and not at once. */
    bool endsByExit = false;
};

/** All checks, each behind those it needs. */
const std::vector<Check>& allChecks();

// LoadingChecks.cpp
void checkOpen(const Settings& settings);
void checkEntries(const Settings& settings);
void checkExports(const Settings& settings);
void checkThreadsGone(const Settings& settings);
void checkUnload(const Settings& settings);
// StartChecks.cpp
void checkInit(const Settings& settings);
void checkLogLevel(const Settings& settings);
void checkInitRepeated(const Settings& settings);
void checkInitThreads(const Settings& settings);
void checkFirstFrame(const Settings& settings);
void checkContext(const Settings& settings);
// RecordChecks.cpp
void checkRecordsKept(const Settings& settings);
void checkUnknownParameters(const Settings& settings);
void checkStatuses(const Settings& settings);
// PlaneChecks.cpp
void checkSizes(const Settings& settings);
void checkSameOutput(const Settings& settings);
void checkBounds(const Settings& settings);
void checkPadding(const Settings& settings);
void checkPlanesAfterReturn(const Settings& settings);
// CancelChecks.cpp
void checkCancelReturns(const Settings& settings);
void checkCancelEnds(const Settings& settings);
void checkCancelNames(const Settings& settings);
void checkDeinitAfterCancel(const Settings& settings);
// GrowthChecks.cpp
void checkGrowth(const Settings& settings);
// TimesChecks.cpp
void checkTimes(const Settings& settings);
// EngineChecks.cpp
void checkAdapter(const Settings& settings);
void checkStream(const Settings& settings);
void checkExpiry(const Settings& settings);
void checkProcessExit(const Settings& settings);
void checkSoak(const Settings& settings);

}  // namespace checker
