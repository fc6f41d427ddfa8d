// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gst/gst.h>

#include <deque>
#include <optional>

namespace displayengine::gst {

/** The mean rate of frames by their timestamps, over the last ones. */
class RateMeter {
public:
    /** A frame with this timestamp comes. One that lies behind the last starts afresh. */
    void add(GstClockTime timestamp) {
        if (!GST_CLOCK_TIME_IS_VALID(timestamp)) {
            return;
        }
        if (!mTimes.empty() && timestamp <= mTimes.back()) {
            clear();
        }
        mTimes.push_back(timestamp);
        if (mTimes.size() > kMostFrames) {
            mTimes.pop_front();
        }
    }
    void clear() { mTimes.clear(); }

    /** Frames per second; none before there are ten frames. */
    std::optional<double> rate() const {
        if (mTimes.size() < kFewestFrames) {
            return std::nullopt;
        }
        const auto span = static_cast<double>(mTimes.back() - mTimes.front());
        return static_cast<double>(mTimes.size() - 1) * static_cast<double>(GST_SECOND) / span;
    }

private:
    static constexpr size_t kFewestFrames = 10;
    static constexpr size_t kMostFrames = 32;

    std::deque<GstClockTime> mTimes;
};

}  // namespace displayengine::gst
