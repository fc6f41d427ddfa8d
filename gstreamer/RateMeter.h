// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gst/gst.h>

#include <array>
#include <cstddef>
#include <optional>

namespace displayengine::gst {

/** The mean rate of frames by their timestamps, over the last ones. */
class RateMeter {
public:
    /** A frame with this timestamp comes. One that lies behind the last starts afresh. */
    void add(GstClockTime timestamp);
    void clear() { mCount = 0; }

    /** Frames per second; none before there are ten frames. */
    std::optional<double> rate() const;

private:
    std::array<GstClockTime, 32> mTimes; /**< The frame of count n at n modulo the size. */
    size_t mCount = 0;
};

}  // namespace displayengine::gst
