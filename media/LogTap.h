// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/log.h>

#include <string_view>

/**
 * The process's logger while there are sessions, and the log switches. All functions may be called
 * on any thread, and none throws.
 */
namespace displayengine::media::logtap {

/** Takes one message; the texts end in a NUL, and are valid during the call only. */
using Reader = void (*)(std::string_view tag, std::string_view message, bool isWarning);

/** Of a message that a session sends to see whether it comes back; `next` does not get it. */
constexpr char kProbeTag[] = "DE N Media";

/**
 * Makes this the process's logger. `reader` gets each message first, on the thread that logs, and
 * may throw; then `next`, if it would have been written without the raised switches.
 */
void install(__android_logger_function next, Reader reader);

/** Counts one that needs the debug and info messages, and switches them on. */
void acquire();
/** Counts it out; after the last one the switches are as their user wanted them. */
void release();
/** Switches them on again, if somebody has set them anew while they are needed. */
void keepOn();

}  // namespace displayengine::media::logtap
