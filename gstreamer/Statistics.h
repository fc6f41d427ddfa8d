// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gst/gst.h>

#include <array>
#include <cstdint>
#include <mutex>

#include "gstreamer/OutcomeMeta.h"

namespace displayengine::gst {

/** What became of the frames since the element was started. Any thread may call. */
class Statistics {
public:
    void clear();
    void add(const FrameOutcome& frame);

    uint64_t count(media::Outcome outcome) const;
    /** The structure "displayenhance-stats" for the caller to free. */
    GstStructure* structure(uint64_t held) const;

private:
    struct Counts {
        std::array<uint64_t, media::kOutcomes> frames{};
        uint64_t calls = 0; /**< Frames whose call of the engine was made. */
        double lastMs = 0;
        double sumMs = 0;
        double maxMs = 0;
    };

    mutable std::mutex mMutex;
    Counts mCounts; /**< Guarded by mMutex. */
};

}  // namespace displayengine::gst
