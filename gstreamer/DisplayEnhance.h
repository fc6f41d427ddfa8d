// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gst/video/gstvideofilter.h>

#define GST_TYPE_DISPLAY_ENHANCE (gst_display_enhance_get_type())
/** The element `displayenhance`: offers each frame to the process's display engine. */
G_DECLARE_FINAL_TYPE(GstDisplayEnhance, gst_display_enhance, GST, DISPLAY_ENHANCE, GstVideoFilter)
