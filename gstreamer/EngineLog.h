// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/log.h>
#include <gst/gst.h>

/** The debug category `displayenhance`, which the plugin creates. */
GST_DEBUG_CATEGORY_EXTERN(displayenhance_debug);
#define GST_CAT_DEFAULT displayenhance_debug

namespace displayengine::gst {

/**
 * A logger of the platform's that writes to the category: errors and warnings as such, everything
 * else at debug level. Any thread may call.
 */
void logToCategory(const __android_log_message* message);

}  // namespace displayengine::gst
