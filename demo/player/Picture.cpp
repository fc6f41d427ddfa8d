// SPDX-License-Identifier: Apache-2.0
#include "Picture.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>

namespace player {
namespace {

constexpr int kSeamHalfWidth = 2;
constexpr uint8_t kSeamLuma = 235;
constexpr uint8_t kSeamEdgeLuma = 16;
constexpr uint8_t kNoColour = 128;

uint64_t lumaChange(const Planes& a, const Planes& b) {
    uint64_t sum = 0;
    for (int y = 0; y < a.rows(0); ++y) {
        const uint8_t* const rowA = a.row(0, y);
        const uint8_t* const rowB = b.row(0, y);
        uint32_t rowSum = 0;
        for (int x = 0; x < a.width(); ++x) {
            rowSum += static_cast<uint32_t>(std::abs(rowA[x] - rowB[x]));
        }
        sum += rowSum;
    }
    return sum;
}

/** Puts the left half of `before` into `after`, and a light seam with dark edges between both. */
void compose(const Planes& before, const Planes& after) {
    const int middle = after.width() / 4 * 2;  // even, since two pixels share their chroma
    const int first = std::max(middle - kSeamHalfWidth, 0);
    const int last = std::min(middle + kSeamHalfWidth, after.width()) - 1;
    for (const int plane : {0, 1}) {
        for (int y = 0; y < after.rows(plane); ++y) {
            uint8_t* const row = after.row(plane, y);
            std::memcpy(row, before.row(plane, y), static_cast<size_t>(middle));
            for (int x = first; x <= last; ++x) {
                const bool isEdge = x == first || x == last;
                row[x] = plane == 1 ? kNoColour : isEdge ? kSeamEdgeLuma : kSeamLuma;
            }
        }
    }
}

}  // namespace

void Picture::consider(GstBuffer* before, GstBuffer* after, GstCaps* caps) {
    GstVideoInfo info;
    if (gst_video_info_from_caps(&info, caps) == FALSE) {
        return;
    }
    const Planes was(before, info, GST_MAP_READ);
    const Planes is(after, info, GST_MAP_READ);
    const uint64_t change = was && is ? lumaChange(was, is) : 0;
    if (change > mLargestChange) {
        mLargestChange = change;
        mBefore.reset(gst_buffer_ref(before));
        mAfter.reset(gst_buffer_ref(after));
        mCaps.reset(gst_caps_ref(caps));
    }
}

std::string Picture::write(const std::string& path) const {
    GstVideoInfo info;
    gst_video_info_from_caps(&info, mCaps.get());
    const Ref<GstBuffer> shown(gst_buffer_copy_deep(mAfter.get()));
    {
        const Planes before(mBefore.get(), info, GST_MAP_READ);
        const Planes after(shown.get(), info, GST_MAP_WRITE);
        if (!before || !after) {
            return "no memory";
        }
        compose(before, after);
    }
    const Ref<GstSample> sample(gst_sample_new(shown.get(), mCaps.get(), nullptr, nullptr));
    const Ref<GstCaps> format(gst_caps_new_empty_simple("image/png"));
    GError* error = nullptr;
    const Ref<GstSample> png(
        gst_video_convert_sample(sample.get(), format.get(), 10 * GST_SECOND, &error));
    if (png == nullptr) {
        return Ref<GError>(error)->message;
    }
    GstMapInfo bytes;
    GstBuffer* const buffer = gst_sample_get_buffer(png.get());
    gst_buffer_map(buffer, &bytes, GST_MAP_READ);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data), static_cast<std::streamsize>(bytes.size));
    file.close();
    gst_buffer_unmap(buffer, &bytes);
    return file ? "" : std::strerror(errno);
}

}  // namespace player
