// SPDX-License-Identifier: Apache-2.0
#include <gst/gst.h>

#include "gstreamer/DisplayEnhance.h"
#include "gstreamer/EngineLog.h"
#include "gstreamer/FrameOutcome.h"

GST_DEBUG_CATEGORY(displayenhance_debug);

void displayengine::gst::logToCategory(const __android_log_message* message) {
    const GstDebugLevel level = message->priority >= ANDROID_LOG_ERROR  ? GST_LEVEL_ERROR
                                : message->priority == ANDROID_LOG_WARN ? GST_LEVEL_WARNING
                                                                        : GST_LEVEL_DEBUG;
    GST_CAT_LEVEL_LOG(displayenhance_debug, level, nullptr, "%s: %s", message->tag,
                      message->message);
}

static gboolean initialisePlugin(GstPlugin* plugin) {
    GST_DEBUG_CATEGORY_INIT(displayenhance_debug, "displayenhance", 0,
                            "video enhancement by the display engine");
    displayengine::gst::registerOutcomeMeta();
    return gst_element_register(plugin, "displayenhance", GST_RANK_NONE, GST_TYPE_DISPLAY_ENHANCE);
}

// What the macro below names.
#define PACKAGE "displayengine"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, displayengine,
                  "Video enhancement by the display engine", initialisePlugin, PLUGIN_VERSION,
                  "Apache 2.0", "displayengine", "displayengine")
