// SPDX-License-Identifier: Apache-2.0
#include "gstreamer/FrameOutcome.h"

#include <algorithm>

namespace displayengine::gst {
namespace {

constexpr char kMetaName[] = "displayengine-outcome";

const char* fieldName(media::Outcome outcome) {
    switch (outcome) {
        case media::Outcome::kProcessed:
            return "enhanced";
        case media::Outcome::kNotOffered:
            return "not-wanted";
        default:
            return media::outcomeName(outcome);
    }
}

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

void Statistics::add(const FrameOutcome& frame) {
    ++mFrames[static_cast<size_t>(frame.outcome)];
    if (frame.milliseconds > 0) {
        ++mCalls;
        mLastMs = frame.milliseconds;
        mSumMs += frame.milliseconds;
        mMaxMs = std::max(mMaxMs, frame.milliseconds);
    }
}

GstStructure* Statistics::structure(uint64_t held) const {
    GstStructure* const result = gst_structure_new_empty("displayenhance-stats");
    guint64 offered = 0;
    for (size_t i = 0; i < mFrames.size(); ++i) {
        const auto outcome = static_cast<media::Outcome>(i);
        offered += outcome == media::Outcome::kNotOffered ? 0 : mFrames[i];
        gst_structure_set(result, fieldName(outcome), G_TYPE_UINT64, guint64{mFrames[i]}, nullptr);
    }
    const double mean = mCalls == 0 ? 0 : mSumMs / static_cast<double>(mCalls);
    gst_structure_set(result, "offered", G_TYPE_UINT64, offered, "held", G_TYPE_UINT64,
                      guint64{held}, "latency-last", G_TYPE_DOUBLE, mLastMs, "latency-mean",
                      G_TYPE_DOUBLE, mean, "latency-max", G_TYPE_DOUBLE, mMaxMs, nullptr);
    return result;
}

}  // namespace displayengine::gst
