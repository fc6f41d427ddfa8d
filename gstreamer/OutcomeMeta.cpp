// SPDX-License-Identifier: Apache-2.0
#include "gstreamer/OutcomeMeta.h"

namespace displayengine::gst {
namespace {

constexpr char kMetaName[] = "displayengine-outcome";

}  // namespace

void registerOutcomeMeta() {
    // Without tags the meta holds for every later form of the frame, so other filters keep it.
    static const gchar* noTags[] = {nullptr};
    gst_meta_register_custom(kMetaName, noTags, nullptr, nullptr, nullptr);
}

GstBuffer* markOutcome(GstBuffer* buffer, const FrameOutcome& outcome) {
    GstBuffer* const marked = gst_buffer_make_writable(buffer);
    // An element of this kind further up may have left one.
    GstCustomMeta* meta = gst_buffer_get_custom_meta(marked, kMetaName);
    if (meta == nullptr) {
        meta = gst_buffer_add_custom_meta(marked, kMetaName);
    }
    gst_structure_set(gst_custom_meta_get_structure(meta), "outcome", G_TYPE_STRING,
                      media::outcomeName(outcome.outcome), "reason", G_TYPE_STRING,
                      outcome.reason.c_str(), "text", G_TYPE_STRING, outcome.text.c_str(),
                      "latency-ms", G_TYPE_DOUBLE, outcome.milliseconds, nullptr);
    return marked;
}

}  // namespace displayengine::gst
