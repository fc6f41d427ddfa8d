// SPDX-License-Identifier: Apache-2.0
#include <gst/gst.h>

#include "gstreamer/DisplayEnhance.h"
#include "gstreamer/EngineLog.h"
#include "gstreamer/OutcomeMeta.h"

namespace {

gboolean initialisePlugin(GstPlugin* plugin) {
    displayengine::gst::registerLogCategory();
    displayengine::gst::registerOutcomeMeta();
    return gst_element_register(plugin, "displayenhance", GST_RANK_NONE, GST_TYPE_DISPLAY_ENHANCE);
}

}  // namespace

// What the macro below names.
#define PACKAGE "displayengine"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, displayengine,
                  "Video enhancement by the display engine", initialisePlugin, PLUGIN_VERSION,
                  "Apache 2.0", "displayengine", "displayengine")
