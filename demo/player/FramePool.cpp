// SPDX-License-Identifier: Apache-2.0
#include "FramePool.h"

#include <algorithm>
#include <new>
#include <utility>

namespace player {
namespace {

constexpr size_t kAlignment = 64;

/** A chroma row of an odd width is one byte longer than its luma row. */
int alignedStride(int width) {
    const size_t bytes = (static_cast<size_t>(width) + 1) / 2 * 2;
    return static_cast<int>((bytes + kAlignment - 1) / kAlignment * kAlignment);
}

}  // namespace

Frame::Frame(int width, int height)
    : mWidth(width), mHeight(height), mStride(alignedStride(width)) {
    mBlock.reset(static_cast<uint8_t*>(std::aligned_alloc(kAlignment, bytes())));
    if (mBlock == nullptr) {
        throw std::bad_alloc();
    }
}

size_t Frame::bytes() const {
    const size_t chromaRows = (static_cast<size_t>(mHeight) + 1) / 2;
    return lumaBytes() + chromaRows * static_cast<size_t>(mStride);
}

std::unique_ptr<Frame> FramePool::take(int width, int height) {
    while (!mSpare.empty()) {
        std::unique_ptr<Frame> frame = std::move(mSpare.back());
        mSpare.pop_back();
        if (frame->width() == width && frame->height() == height) {
            return frame;
        }
    }
    return std::make_unique<Frame>(width, height);
}

void FramePool::give(std::unique_ptr<Frame> frame) {
    mSpare.push_back(std::move(frame));
}

void FramePool::hold(std::unique_ptr<Frame> frame, uint64_t index) {
    mHeld.push_back({std::move(frame), index});
}

void FramePool::completed(uint64_t index) {
    const auto firstFree = std::partition(mHeld.begin(), mHeld.end(),
                                          [&](const Held& held) { return held.index >= index; });
    for (auto held = firstFree; held != mHeld.end(); ++held) {
        give(std::move(held->frame));
    }
    mHeld.erase(firstFree, mHeld.end());
}

}  // namespace player
