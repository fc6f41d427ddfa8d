#pragma once

#include <atomic>
#include <string>

#include "common/Export.h"

/**
 * Switches of the three suppressible message classes. Any module of the process may read and write
 * them, at any time and without a lock: a message that races with a change is gated by either
 * value. Debug and info messages are written from load on, verbose ones are not.
 */
extern DE_EXPORT std::atomic<bool> g_delogdEnable;
extern DE_EXPORT std::atomic<bool> g_delogiEnable;
extern DE_EXPORT std::atomic<bool> g_delogvEnable;

static_assert(sizeof(g_delogdEnable) == 1, "the log switches are exported as one-byte variables");

namespace DisplayEngineCleanCommon {

/**
 * Sets the three log switches from the system properties. Any thread may call it; each
 * DisplayEngineManager does so once, when it is constructed.
 */
DE_EXPORT void initLogSwitch();

/** Removes leading white space: the bytes 0x09 to 0x0D and the space. Any thread. */
DE_EXPORT void trimLeft(std::string& str);
/** Removes trailing control bytes, NUL and delete among them, and spaces. Any thread. */
DE_EXPORT void trimRight(std::string& str);
/** trimLeft() and trimRight(), each with its own set of bytes. Any thread. */
DE_EXPORT void trim(std::string& str);

}  // namespace DisplayEngineCleanCommon
