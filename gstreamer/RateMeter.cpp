// SPDX-License-Identifier: Apache-2.0
#include "gstreamer/RateMeter.h"

#include <algorithm>

namespace displayengine::gst {
namespace {

constexpr size_t kFewestFrames = 10;

}  // namespace

void RateMeter::add(GstClockTime timestamp) {
    if (!GST_CLOCK_TIME_IS_VALID(timestamp)) {
        return;
    }
    if (mCount > 0 && timestamp <= mTimes[(mCount - 1) % mTimes.size()]) {
        clear();
    }
    mTimes[mCount++ % mTimes.size()] = timestamp;
}

std::optional<double> RateMeter::rate() const {
    if (mCount < kFewestFrames) {
        return std::nullopt;
    }
    const size_t gaps = std::min(mCount, mTimes.size()) - 1;
    const GstClockTime span =
        mTimes[(mCount - 1) % mTimes.size()] - mTimes[(mCount - 1 - gaps) % mTimes.size()];
    return static_cast<double>(gaps) * static_cast<double>(GST_SECOND) / static_cast<double>(span);
}

}  // namespace displayengine::gst
