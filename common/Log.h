// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/log.h>

#include "common/DisplayEngineCleanCommon.h"

/**
 * The library's log statements. A source file defines LOG_TAG before it includes this header.
 *
 * Each message begins with the name of the function that logs and the source line, so a statement
 * stands in the function it speaks for and never in a helper. The format is a string literal.
 * Debug, info and verbose messages go out at info priority behind their switches, and compute none
 * of their arguments while the switch is off; warnings and errors always go out.
 */
#define DE_LOGD(...) DE_LOG_IF(g_delogdEnable, ANDROID_LOG_INFO, "%s:%d: ", __VA_ARGS__)
#define DE_LOGI(...) DE_LOG_IF(g_delogiEnable, ANDROID_LOG_INFO, "%s:%d: ", __VA_ARGS__)
#define DE_LOGV(...) DE_LOG_IF(g_delogvEnable, ANDROID_LOG_INFO, "LOGV %s:%d: ", __VA_ARGS__)
#define DE_LOGW(...) DE_LOG_PRINT(ANDROID_LOG_WARN, "%s:%d: ", __VA_ARGS__)
#define DE_LOGE(...) DE_LOG_PRINT(ANDROID_LOG_ERROR, "%s:%d: ", __VA_ARGS__)

#define DE_LOG_IF(enabled, priority, prefix, ...)        \
    do {                                                 \
        if (enabled.load(std::memory_order_relaxed)) {   \
            DE_LOG_PRINT(priority, prefix, __VA_ARGS__); \
        }                                                \
    } while (false)

// The function name and the line go between the format and its arguments. Strict C++17 cannot drop
// the comma in front of an empty list of arguments, so a format on its own takes another macro.
#define DE_LOG_PRINT(priority, prefix, ...)                                                     \
    DE_LOG_CHOOSE(__VA_ARGS__, DE_LOG_ARGS, DE_LOG_ARGS, DE_LOG_ARGS, DE_LOG_ARGS, DE_LOG_ARGS, \
                  DE_LOG_ARGS, DE_LOG_ARGS, DE_LOG_ARGS, DE_LOG_ARGS, DE_LOG_ARGS, DE_LOG_ARGS, \
                  DE_LOG_ARGS, DE_LOG_ARGS, DE_LOG_PLAIN, ~)                                    \
    (priority, prefix, __VA_ARGS__)
#define DE_LOG_CHOOSE(a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12, a13, a14, macro, ...) macro
#define DE_LOG_PLAIN(priority, prefix, format) \
    __android_log_print(priority, LOG_TAG, prefix format, __func__, __LINE__)
#define DE_LOG_ARGS(priority, prefix, format, ...) \
    __android_log_print(priority, LOG_TAG, prefix format, __func__, __LINE__, __VA_ARGS__)
