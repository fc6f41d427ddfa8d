// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gst/gst.h>

#include <array>
#include <cstdint>
#include <string>

#include "media/VideoSession.h"

namespace displayengine::gst {

/** What became of one buffer, as its meta tells it. */
struct FrameOutcome {
    media::Outcome outcome = media::Outcome::kNotOffered;
    std::string reason;      /**< Why it was not offered, as a word. */
    std::string text;        /**< The same in words, or the engine's own words. */
    double milliseconds = 0; /**< Length of the engine's call. */
};

/** Registers the custom meta "displayengine-outcome". Once, when the plugin is loaded. */
void registerOutcomeMeta();

/**
 * Writes `outcome` to the buffer's meta. Takes `buffer` and returns it, or a copy that shares its
 * memory when others hold the buffer too.
 */
GstBuffer* markOutcome(GstBuffer* buffer, const FrameOutcome& outcome);

/** What became of the frames since the element was started. */
class Statistics {
public:
    void add(const FrameOutcome& frame);

    uint64_t count(media::Outcome outcome) const { return mFrames[static_cast<size_t>(outcome)]; }
    /** The structure "displayenhance-stats" for the caller to free. */
    GstStructure* structure(uint64_t held) const;

private:
    std::array<uint64_t, media::kOutcomes> mFrames{};
    uint64_t mCalls = 0; /**< Frames whose call of the engine was made. */
    double mLastMs = 0;
    double mSumMs = 0;
    double mMaxMs = 0;
};

}  // namespace displayengine::gst
