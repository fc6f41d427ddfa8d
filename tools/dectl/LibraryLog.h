// SPDX-License-Identifier: Apache-2.0
// The client library's log, which alone tells some failures from answers.
#pragma once

namespace control {

/** Takes the library's log over: to standard error when verbose, otherwise nowhere. */
void takeLibraryLog(bool isVerbose);

/** Whether an operation of the facade has logged a failure so far. Any thread. */
bool hasLoggedFailure();

}  // namespace control
