// SPDX-License-Identifier: Apache-2.0
#include "ImageCopy.h"

#include <cstddef>
#include <cstring>

using android::GraphicBuffer;
using android::sp;

namespace sample {
namespace {

/** Bytes of the whole image; 0 for a format that the sample does not know. */
size_t imageSize(const GraphicBuffer& buffer) {
    const size_t pixels = size_t{buffer.getStride()} * buffer.getHeight();
    switch (buffer.getPixelFormat()) {
        case android::PIXEL_FORMAT_RGBA_8888:
            return pixels * 4;
        case android::HAL_PIXEL_FORMAT_YCRCB_420_SP:
            return pixels + pixels / 2;
        default:
            return 0;
    }
}

bool sameShape(const GraphicBuffer& a, const GraphicBuffer& b) {
    return a.getWidth() == b.getWidth() && a.getHeight() == b.getHeight() &&
           a.getStride() == b.getStride() && a.getPixelFormat() == b.getPixelFormat();
}

}  // namespace

bool copyImage(const sp<GraphicBuffer>& from, const sp<GraphicBuffer>& to) {
    if (from == nullptr || to == nullptr || !sameShape(*from, *to) || imageSize(*from) == 0) {
        return false;
    }
    void* source = nullptr;
    void* target = nullptr;
    const bool readable = from->lock(GraphicBuffer::USAGE_SW_READ_OFTEN, &source) == android::OK;
    const bool writable = to->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &target) == android::OK;
    if (readable && writable) {
        // A client may name the same memory twice.
        std::memmove(target, source, imageSize(*from));
    }
    if (readable) {
        from->unlock();
    }
    if (writable) {
        to->unlock();
    }
    return readable && writable;
}

}  // namespace sample
