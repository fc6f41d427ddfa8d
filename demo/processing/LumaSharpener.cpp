// SPDX-License-Identifier: Apache-2.0
#include "LumaSharpener.h"

#include <algorithm>
#include <cstring>

namespace {

/** The blur is the 5 x 5 binomial kernel (1 4 6 4 1, separable, sum 256). */
constexpr int kRadius = 2;
constexpr int kRingRows = 2 * kRadius + 1;

/**
 * Gradients are sums of absolute central differences of lightly smoothed values, 0 to 8160.
 * Camera noise of a few levels stays under the floor.
 */
constexpr int kGradientFloor = 128;
/** Gradient steps for each of the kFullStrength steps of strength. */
constexpr int kGradientShift = 2;
/** Strength in 1/16: 56/16 adds three and a half times the difference from the blur. */
constexpr int kStrengthShift = 4;
constexpr int kFullStrength = 56;
/** How many levels a pixel may pass its brightest or darkest neighbour. */
constexpr int kOvershoot = 24;

/** Written on 16 bit values: the vector instructions for these exist at every level. */
int16_t lesser(int16_t a, int16_t b) {
    return a < b ? a : b;
}
int16_t greater(int16_t a, int16_t b) {
    return a > b ? a : b;
}
int16_t magnitude(int16_t value) {
    return greater(value, static_cast<int16_t>(-value));
}

int16_t strengthAt(int16_t gradient) {
    const int16_t above = greater(static_cast<int16_t>(gradient - kGradientFloor), 0);
    return lesser(static_cast<int16_t>(above >> kGradientShift), kFullStrength);
}

}  // namespace

void LumaSharpener::prepare(int width) {
    mWidth = width;
    mRowBytes = static_cast<size_t>(width + 2 * kRadius);
    mRows.resize(kRingRows * mRowBytes);
    mColumn.resize(mRowBytes);
    mSlope.resize(mRowBytes);
    mDetail.resize(mRowBytes);
}

const uint8_t* LumaSharpener::savedRow(int row) const {
    return mRows.data() + static_cast<size_t>((row + kRingRows) % kRingRows) * mRowBytes;
}

/** Copies a row of the plane under the number `row`, its border pixels repeated on both sides. */
void LumaSharpener::loadRow(const uint8_t* source, int row) {
    uint8_t* to = mRows.data() + static_cast<size_t>((row + kRingRows) % kRingRows) * mRowBytes;
    std::memset(to, source[0], kRadius);
    std::memcpy(to + kRadius, source, static_cast<size_t>(mWidth));
    std::memset(to + kRadius + mWidth, source[mWidth - 1], kRadius);
}

bool LumaSharpener::sharpen(uint8_t* plane, int width, int height, int stride,
                            const Proceed& proceed) {
    prepare(width);
    const auto rowAt = [&](int row) {
        return plane + static_cast<ptrdiff_t>(std::clamp(row, 0, height - 1)) * stride;
    };
    // A row is overwritten while its neighbours still need it, so the ring holds the originals and
    // runs kRadius rows ahead of the work.
    for (int row = -kRadius; row < kRadius; ++row) {
        loadRow(rowAt(row), row);
    }
    for (int row = 0; row < height; ++row) {
        if (!proceed(row)) {
            return false;
        }
        loadRow(rowAt(row + kRadius), row + kRadius);
        sharpenRow(rowAt(row), row);
    }
    return true;
}

/** Short loops whose every value fits 16 bits, so that the compiler turns each into vector code. */
void LumaSharpener::sharpenRow(uint8_t* out, int row) {
    const uint8_t* above2 = savedRow(row - 2);
    const uint8_t* above = savedRow(row - 1);
    const uint8_t* here = savedRow(row);
    const uint8_t* below = savedRow(row + 1);
    const uint8_t* below2 = savedRow(row + 2);
    uint16_t* column = mColumn.data();
    int16_t* slope = mSlope.data();
    int16_t* detail = mDetail.data();

    // A copy, since a store of bytes might alias the member.
    const int width = mWidth;
    const int padded = width + 2 * kRadius;
    for (int x = 0; x < padded; ++x) {
        column[x] =
            static_cast<uint16_t>(above2[x] + below2[x] + 4 * (above[x] + below[x]) + 6 * here[x]);
    }
    for (int x = 0; x < padded; ++x) {
        slope[x] = static_cast<int16_t>(below[x] - above[x]);
    }
    for (int x = 0; x < width; ++x) {
        const int c = x + kRadius;
        const uint16_t sum =
            static_cast<uint16_t>(column[c - 2] + column[c + 2] +
                                  4 * (column[c - 1] + column[c + 1]) + 6 * column[c] + 128);
        detail[x] = static_cast<int16_t>(here[c] - (sum >> 8));
    }
    for (int x = 0; x < width; ++x) {
        const int c = x + kRadius;
        const int16_t across = static_cast<int16_t>(column[c + 1] - column[c - 1]);
        const int16_t down = static_cast<int16_t>(4 * (slope[c - 1] + 2 * slope[c] + slope[c + 1]));
        const int16_t strength =
            strengthAt(static_cast<int16_t>(magnitude(across) + magnitude(down)));
        detail[x] =
            static_cast<int16_t>(static_cast<int16_t>(detail[x] * strength) >> kStrengthShift);
    }
    for (int x = 0; x < width; ++x) {
        const int c = x + kRadius;
        const int16_t darkest =
            lesser(lesser(lesser(above[c], below[c]), lesser(here[c - 1], here[c + 1])), here[c]);
        const int16_t brightest = greater(
            greater(greater(above[c], below[c]), greater(here[c - 1], here[c + 1])), here[c]);
        const int16_t low = greater(static_cast<int16_t>(darkest - kOvershoot), 0);
        const int16_t high = lesser(static_cast<int16_t>(brightest + kOvershoot), 255);
        const int16_t sharpened = static_cast<int16_t>(here[c] + detail[x]);
        out[x] = static_cast<uint8_t>(lesser(greater(sharpened, low), high));
    }
}
