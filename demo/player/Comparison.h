// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "FramePool.h"

namespace player {

/**
 * Looks after the luma plane of one frame: whether the call changed it, and by how much; and keeps
 * the frame that was changed most for the picture.
 */
class Comparison {
public:
    /** Keeps the luma plane as it is before the call. */
    void before(const Frame& frame);

    /** Whether the plane differs from what `before` kept. Keeps the frame if it differs most. */
    bool after(const Frame& frame);

    /** Whether there is a changed frame to show. */
    bool hasPicture() const { return mLargestChange > 0; }

    /**
     * Writes the frame that was changed most as a PNG file: left of a seam as it was, right of it
     * as the call left it. Returns an empty text, or the reason why it cannot be written.
     */
    std::string writePicture(const std::string& path) const;

private:
    std::vector<uint8_t> mBefore;

    uint64_t mLargestChange = 0; /**< Sum of the differences of all pixels. */
    int mWidth = 0;
    int mHeight = 0;
    int mStride = 0;
    std::vector<uint8_t> mShown; /**< Planes of the picture, already composed of both halves. */
};

}  // namespace player
