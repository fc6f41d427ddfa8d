// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gst/base/gstbasetransform.h>

#include <string>

namespace displayengine::gst {

// What the element says on the bus. The streaming thread posts, holding no lock.

/** ELEMENT, structure "displayenhance". `reason` is empty while frames are offered. */
void postActive(GstElement* element, const std::string& reason, const std::string& text);

/** WARNING: something that enhancement needs is missing. `details` are the engine's words. */
void postMissing(GstElement* element, const char* text, const std::string& details);

/** INFO: the frames come too fast. */
void postTooFast(GstElement* element, const std::string& details);

/** INFO: too many frames of the stream took too long. */
void postOverload(GstElement* element, const std::string& details);

/** QOS: the frame `buffer` expired, `lateMs` milliseconds after it was offered. */
void postExpired(GstBaseTransform* element, GstBuffer* buffer, double lateMs, guint64 processed,
                 guint64 expired);

/** LATENCY: what the element answers to a latency query has changed. */
void postLatencyChanged(GstElement* element);

}  // namespace displayengine::gst
