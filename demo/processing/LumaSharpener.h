// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

/**
 * Adaptive in-place sharpening of an 8-bit luma plane.
 *
 * An unsharp mask whose strength follows the local gradient: flat areas, where a difference from
 * the blurred picture is noise, stay as they are; edges and texture get the full strength. The
 * result is held within a small overshoot of the 3 x 3 neighbourhood so that edges grow no halos.
 *
 * One object serves one thread at a time. It keeps its scratch rows between frames.
 */
class LumaSharpener {
public:
    /** Asked before each row, with the row's number; false stops the work there. */
    using Proceed = std::function<bool(int row)>;

    /**
     * Sharpens `height` rows of `width` pixels, `stride` bytes apart; all at least 1, and `stride`
     * not below `width`. Bytes between `width` and `stride` are neither read nor written.
     *
     * Returns false when `proceed` stopped it: the rows before are sharpened, the others untouched.
     */
    bool sharpen(uint8_t* plane, int width, int height, int stride, const Proceed& proceed);

private:
    void prepare(int width);
    void loadRow(const uint8_t* source, int row);
    const uint8_t* savedRow(int row) const;
    void sharpenRow(uint8_t* out, int row);

    int mWidth = 0;
    size_t mRowBytes = 0;
    std::vector<uint8_t> mRows;    /**< Ring of the original rows around the current one. */
    std::vector<uint16_t> mColumn; /**< Vertical blur of the current row. */
    std::vector<int16_t> mSlope;   /**< Vertical difference at the current row. */
    std::vector<int16_t> mDetail;  /**< Difference from the blur, then what is added to the row. */
};
