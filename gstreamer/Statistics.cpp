// SPDX-License-Identifier: Apache-2.0
#include "gstreamer/Statistics.h"

#include <algorithm>

namespace displayengine::gst {
namespace {

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

void Statistics::clear() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mCounts = Counts();
}

void Statistics::add(const FrameOutcome& frame) {
    const std::lock_guard<std::mutex> lock(mMutex);
    ++mCounts.frames[static_cast<size_t>(frame.outcome)];
    if (frame.milliseconds > 0) {
        ++mCounts.calls;
        mCounts.lastMs = frame.milliseconds;
        mCounts.sumMs += frame.milliseconds;
        mCounts.maxMs = std::max(mCounts.maxMs, frame.milliseconds);
    }
}

uint64_t Statistics::count(media::Outcome outcome) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mCounts.frames[static_cast<size_t>(outcome)];
}

GstStructure* Statistics::structure(uint64_t held) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    GstStructure* const result = gst_structure_new_empty("displayenhance-stats");
    uint64_t offered = 0;
    for (size_t i = 0; i < mCounts.frames.size(); ++i) {
        const auto outcome = static_cast<media::Outcome>(i);
        const guint64 frames = mCounts.frames[i];
        offered += outcome == media::Outcome::kNotOffered ? 0 : frames;
        gst_structure_set(result, fieldName(outcome), G_TYPE_UINT64, frames, nullptr);
    }
    const double mean = mCounts.calls == 0 ? 0 : mCounts.sumMs / static_cast<double>(mCounts.calls);
    gst_structure_set(result, "offered", G_TYPE_UINT64, static_cast<guint64>(offered), "held",
                      G_TYPE_UINT64, static_cast<guint64>(held), "latency-last", G_TYPE_DOUBLE,
                      mCounts.lastMs, "latency-mean", G_TYPE_DOUBLE, mean, "latency-max",
                      G_TYPE_DOUBLE, mCounts.maxMs, nullptr);
    return result;
}

}  // namespace displayengine::gst
