// SPDX-License-Identifier: Apache-2.0
#include "gstreamer/BusMessages.h"

namespace displayengine::gst {
namespace {

void post(GstElement* element, GstMessageType type, GQuark domain, int code, const char* text,
          const std::string& details) {
    gst_element_message_full(element, type, domain, code, g_strdup(text), g_strdup(details.c_str()),
                             __FILE__, __func__, __LINE__);
}

}  // namespace

void postActive(GstElement* element, const std::string& reason, const std::string& text) {
    GstStructure* const structure = gst_structure_new(
        "displayenhance", "active", G_TYPE_BOOLEAN, static_cast<gboolean>(reason.empty()), "reason",
        G_TYPE_STRING, reason.c_str(), "text", G_TYPE_STRING, text.c_str(), nullptr);
    gst_element_post_message(element, gst_message_new_element(GST_OBJECT(element), structure));
}

void postMissing(GstElement* element, const char* text, const std::string& details) {
    post(element, GST_MESSAGE_WARNING, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NOT_FOUND, text,
         details);
}

void postTooFast(GstElement* element, const std::string& details) {
    post(element, GST_MESSAGE_INFO, GST_CORE_ERROR, GST_CORE_ERROR_CLOCK,
         "The frames come faster than the display engine's health monitor allows and are not "
         "enhanced; pace the pipeline with sync=true at its sink, or with \"identity sync=true\" "
         "before displayenhance.",
         details);
}

void postOverload(GstElement* element, const std::string& details) {
    post(element, GST_MESSAGE_INFO, GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED,
         "Too many frames took too long; the display engine enhances no more frames of this "
         "stream.",
         details);
}

void postExpired(GstBaseTransform* element, GstBuffer* buffer, double lateMs, guint64 processed,
                 guint64 expired) {
    const GstSegment& segment = element->segment;
    const GstClockTime timestamp = GST_BUFFER_PTS(buffer);
    const bool isTime = segment.format == GST_FORMAT_TIME;
    const guint64 running = isTime
                                ? gst_segment_to_running_time(&segment, GST_FORMAT_TIME, timestamp)
                                : GST_CLOCK_TIME_NONE;
    const guint64 stream = isTime ? gst_segment_to_stream_time(&segment, GST_FORMAT_TIME, timestamp)
                                  : GST_CLOCK_TIME_NONE;
    GstMessage* const message = gst_message_new_qos(GST_OBJECT(element), FALSE, running, stream,
                                                    timestamp, GST_BUFFER_DURATION(buffer));
    gst_message_set_qos_values(message, static_cast<gint64>(lateMs * GST_MSECOND), 1.0, 0);
    gst_message_set_qos_stats(message, GST_FORMAT_BUFFERS, processed, expired);
    gst_element_post_message(GST_ELEMENT(element), message);
}

void postLatencyChanged(GstElement* element) {
    gst_element_post_message(element, gst_message_new_latency(GST_OBJECT(element)));
}

}  // namespace displayengine::gst
