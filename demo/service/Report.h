// SPDX-License-Identifier: Apache-2.0
// The sample service's report: one line for each call and event, for people and for scripts.
#pragma once

#include <string>

#include "tools/support/JsonText.h"

namespace sample {

/** Writes `line` to standard output and flushes it. Any thread; lines never mix. */
void report(const std::string& line);

/**
 * `text` with everything outside printable ASCII, and the backslash, as \xNN, so that a client
 * cannot forge lines of the report.
 */
std::string printable(const std::string& text);

/** An object's members as they stand in the report: type=15 data={Key="name" Type=26}. */
std::string textOf(const Json& object);

}  // namespace sample
