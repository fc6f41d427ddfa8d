// SPDX-License-Identifier: Apache-2.0
#include "Comparison.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

extern "C" {
#include <libswscale/swscale.h>
}

namespace player {
namespace {

constexpr int kSeamHalfWidth = 2;
constexpr uint8_t kSeamLuma = 235;
constexpr uint8_t kSeamEdgeLuma = 16;
constexpr uint8_t kNoColour = 128;

uint32_t rowChange(const uint8_t* a, const uint8_t* b, int width) {
    uint32_t sum = 0;
    for (int x = 0; x < width; ++x) {
        sum += static_cast<uint32_t>(std::abs(a[x] - b[x]));
    }
    return sum;
}

/** A light line with dark edges, so that it stands out from any picture. */
void drawSeam(uint8_t* luma, uint8_t* chroma, int width, int height, int stride) {
    const int middle = width / 4 * 2;  // even, since two pixels share their chroma
    const int first = std::max(middle - kSeamHalfWidth, 0);
    const int last = std::min(middle + kSeamHalfWidth, width) - 1;
    for (int y = 0; y < height; ++y) {
        uint8_t* lumaRow = luma + static_cast<ptrdiff_t>(y) * stride;
        uint8_t* chromaRow = chroma + static_cast<ptrdiff_t>(y / 2) * stride;
        for (int x = first; x <= last; ++x) {
            lumaRow[x] = x == first || x == last ? kSeamEdgeLuma : kSeamLuma;
            chromaRow[x] = kNoColour;
        }
    }
}

}  // namespace

void Comparison::before(const Frame& frame) {
    mBefore.assign(frame.y(), frame.y() + frame.lumaBytes());
}

bool Comparison::after(const Frame& frame) {
    uint64_t change = 0;
    for (int y = 0; y < frame.height(); ++y) {
        const ptrdiff_t at = static_cast<ptrdiff_t>(y) * frame.stride();
        change += rowChange(frame.y() + at, mBefore.data() + at, frame.width());
    }
    if (change > mLargestChange) {
        mLargestChange = change;
        mWidth = frame.width();
        mHeight = frame.height();
        mStride = frame.stride();
        mShown.assign(frame.y(), frame.y() + frame.bytes());
        for (int y = 0; y < mHeight; ++y) {
            const ptrdiff_t at = static_cast<ptrdiff_t>(y) * mStride;
            std::memcpy(mShown.data() + at, mBefore.data() + at, static_cast<size_t>(mWidth / 2));
        }
        drawSeam(mShown.data(), mShown.data() + frame.lumaBytes(), mWidth, mHeight, mStride);
    }
    return change > 0;
}

std::string Comparison::writePicture(const std::string& path) const {
    // swscale may write up to an alignment beyond the last pixel of a row.
    const int rgbStride = (mWidth * 3 + 63) / 64 * 64;
    std::vector<uint8_t> rgb(static_cast<size_t>(rgbStride) * static_cast<size_t>(mHeight) + 64);
    const uint8_t* const chroma = mShown.data() + mStride * static_cast<ptrdiff_t>(mHeight);
    const std::array<const uint8_t*, 4> planes = {mShown.data(), chroma};
    const std::array<int, 4> strides = {mStride, mStride};
    const std::array<uint8_t*, 4> target = {rgb.data()};
    const std::array<int, 4> targetStrides = {rgbStride};
    SwsContext* const converter =
        sws_getContext(mWidth, mHeight, AV_PIX_FMT_NV12, mWidth, mHeight, AV_PIX_FMT_RGB24,
                       SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (converter == nullptr) {
        return "the picture cannot be converted";
    }
    sws_scale(converter, planes.data(), strides.data(), 0, mHeight, target.data(),
              targetStrides.data());
    sws_freeContext(converter);

    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(mWidth);
    image.height = static_cast<png_uint_32>(mHeight);
    image.format = PNG_FORMAT_RGB;
    errno = 0;
    if (png_image_write_to_file(&image, path.c_str(), 0, rgb.data(), rgbStride, nullptr) != 0) {
        return "";
    }
    return errno != 0 ? std::strerror(errno) : image.message;
}

}  // namespace player
