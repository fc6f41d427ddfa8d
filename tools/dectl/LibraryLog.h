// SPDX-License-Identifier: Apache-2.0
// The log of the client library and the platform, which alone tells some failures from answers.
#pragma once

#include <string>

namespace control {

/** Takes over the log of the process: to standard error if `isVerbose`, otherwise nowhere. */
void takeLibraryLog(bool isVerbose);

/**
 * Switches the library's debug, info and verbose messages on, if the log is verbose. A manager that
 * is constructed sets these switches from the properties.
 */
void raiseLogSwitches();

/** Whether an operation of the facade has logged a failure so far. Any thread. */
bool hasLoggedFailure();

/** The latest warning or error of the platform, which says why a lookup fails; empty if none. */
std::string platformWarning();

}  // namespace control
