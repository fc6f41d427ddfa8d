// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "Gst.h"

namespace player {

/** The frame that enhancement changed most, for a picture of it before and after. */
class Picture {
public:
    /** Looks at one enhanced frame, both buffers of the format in `caps`. */
    void consider(GstBuffer* before, GstBuffer* after, GstCaps* caps);

    /** Whether there is a changed frame to show. */
    explicit operator bool() const { return mLargestChange > 0; }

    /**
     * Writes a PNG file: left of a seam the frame as it was, right of it as it was enhanced.
     * Returns an empty text, or the reason why it cannot be written.
     */
    std::string write(const std::string& path) const;

private:
    uint64_t mLargestChange = 0; /**< Sum of the differences of all pixels' luma. */
    Ref<GstBuffer> mBefore;
    Ref<GstBuffer> mAfter;
    Ref<GstCaps> mCaps;
};

}  // namespace player
