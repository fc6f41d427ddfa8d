// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "common/Export.h"

/**
 * @file
 * The process-wide log switches, and string utilities for the modules of the process.
 */

namespace android {
class String16;
}

/**
 * Switch of the debug messages, the first of three suppressible classes. Any module of the process
 * may read and write the switches, at any time and without a lock: a message that races with a
 * change is gated by either value. Debug and info messages are written from load on, verbose ones
 * are not.
 */
extern DE_EXPORT std::atomic<bool> g_delogdEnable;
extern DE_EXPORT std::atomic<bool> g_delogiEnable; /**< The same for info messages. */
extern DE_EXPORT std::atomic<bool> g_delogvEnable; /**< The same for verbose messages. */

static_assert(sizeof(g_delogdEnable) == 1, "the log switches are exported as one-byte variables");

/** Log switches and strings. */
namespace DisplayEngineCleanCommon {

/**
 * Sets the three log switches from the system properties. Any thread may call it; each
 * DisplayEngineManager does so once, when it is constructed.
 */
DE_EXPORT void initLogSwitch();

// String utilities. Any thread may call them, and none depends on the locale. Without memory for a
// result, split() appends nothing and string16ToString() answers an empty string.

/**
 * Appends the fields of `str` between the occurrences of `sep` to `out`, which keeps what it holds:
 * at least one field, empty ones included. With an empty `sep`, all of `str` is one field. `str`
 * may be an element of `out`.
 */
DE_EXPORT void split(const std::string& str, const std::string& sep, std::vector<std::string>& out);

/** The decimal number at the start of `str`, after white space; 0 when there is none. */
DE_EXPORT int stringToInt(const std::string& str);

/**
 * The value of a decimal number: digits, at most one full stop, a hyphen-minus in front for a
 * negative one. Anything else, no digit at all, or a value outside the float range gives a warning
 * in the log and 0.
 */
DE_EXPORT float stringToFloat(const std::string& str);

/** Removes leading white space: the bytes 0x09 to 0x0D and the space. */
DE_EXPORT void trimLeft(std::string& str);
/** Removes trailing control bytes, NUL and delete among them, and spaces. */
DE_EXPORT void trimRight(std::string& str);
/** trimLeft() and trimRight(), each with its own set of bytes. */
DE_EXPORT void trim(std::string& str);

/** The low eight bits of each unit: exact for ASCII only, no conversion to UTF-8. */
DE_EXPORT std::string string16ToString(const android::String16& s16);

}  // namespace DisplayEngineCleanCommon
