// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/log.h>

#include <string_view>

/**
 * The process's logger while there are sessions, and the log switches. All functions may be called
 * on any thread, and none throws.
 */
namespace displayengine::media::logtap {

/** A message of the process, split if it is the client library's; the texts are valid during the
 * call only. */
struct Message {
    std::string_view tag;
    std::string_view function; /**< That logs; meaningless in another's message. */
    std::string_view text;     /**< Behind the function and the source line; all of binder's. */
    bool isWarning;            /**< Or an error. */
};
using Reader = void (*)(const Message& message);

constexpr std::string_view kFacadeTag = "DE N VideoEngine";
constexpr std::string_view kEngineTag = "DE N AISR";
constexpr std::string_view kAdapterTag = "DE N AISRAlgo";
constexpr std::string_view kBinderTag = "binder";
/** Of a message that a session sends to see whether it comes back; `next` does not get it. */
constexpr char kProbeTag[] = "DE N Media";

/**
 * Makes this the process's logger. `reader` gets each message first, on the thread that logs; then
 * `next`, if it would have been written without the raised switches.
 */
void install(__android_logger_function next, Reader reader);

/** Counts one that needs the debug and info messages, and switches them on. */
void acquire();
/** Counts it out; after the last one the switches are as their user wanted them. */
void release();
/** Switches them on again, if somebody has set them anew while they are needed. */
void keepOn();
/** Whether they are still on. */
bool isOn();

}  // namespace displayengine::media::logtap
