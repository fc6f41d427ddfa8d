// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,
    ANDROID_LOG_INFO,
    ANDROID_LOG_WARN,
    ANDROID_LOG_ERROR,
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
};

/** One message as a logger receives it. The texts are valid only during the call. */
struct __android_log_message {
    size_t struct_size;
    int32_t buffer_id;
    int32_t priority;
    const char* tag;
    const char* file;
    uint32_t line;
    const char* message;
};

/** Receives every message of the process, whole, on the thread that logs; calls may overlap. */
typedef void (*__android_logger_function)(const struct __android_log_message* message);

/**
 * Formats a message and hands it to the logger in use. Only without memory is a text of more than
 * 1023 bytes cut to that length. Leaves errno unchanged. Returns 1, or a negative error number when
 * the text cannot be formatted.
 */
int __android_log_print(int priority, const char* tag, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/**
 * Replaces the logger; null puts the standard-error logger back. A call that is under way may
 * still reach the previous one.
 */
void __android_log_set_logger(__android_logger_function logger);

/**
 * The logger in use at first: writes "date time pid tid P tag: text" as one line to standard
 * error, never mixed with another line of this process.
 */
void __android_log_stderr_logger(const struct __android_log_message* message);
}
