// SPDX-License-Identifier: Apache-2.0
#include "gstreamer/EngineLog.h"

GST_DEBUG_CATEGORY(displayenhance_debug);

namespace displayengine::gst {

void registerLogCategory() {
    GST_DEBUG_CATEGORY_INIT(displayenhance_debug, "displayenhance", 0,
                            "video enhancement by the display engine");
}

void logToCategory(const __android_log_message* message) {
    const GstDebugLevel level = message->priority >= ANDROID_LOG_ERROR  ? GST_LEVEL_ERROR
                                : message->priority == ANDROID_LOG_WARN ? GST_LEVEL_WARNING
                                                                        : GST_LEVEL_DEBUG;
    GST_CAT_LEVEL_LOG(displayenhance_debug, level, nullptr, "%s: %s", message->tag,
                      message->message);
}

}  // namespace displayengine::gst
