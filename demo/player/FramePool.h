// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

namespace player {

/** The NV12 planes of one picture: luma, then interleaved chroma at half size, in one block. */
class Frame {
public:
    /** Sizes are at least 1. The rows begin at multiples of 64 bytes. Throws std::bad_alloc. */
    Frame(int width, int height);

    int width() const { return mWidth; }
    int height() const { return mHeight; }
    /** Bytes from one row to the next, in both planes. */
    int stride() const { return mStride; }
    uint8_t* y() { return mBlock.get(); }
    const uint8_t* y() const { return mBlock.get(); }
    uint8_t* uv() { return mBlock.get() + lumaBytes(); }
    size_t lumaBytes() const { return static_cast<size_t>(mStride) * static_cast<size_t>(mHeight); }
    size_t bytes() const;

private:
    struct Free {
        void operator()(void* block) const { std::free(block); }
    };

    int mWidth;
    int mHeight;
    int mStride;
    std::unique_ptr<uint8_t, Free> mBlock;
};

/**
 * The frames of the player. A frame that expired may still be written by the processing library: it
 * is held, neither reused nor freed, until a later frame has completed. The worker takes frames in
 * order, so it is then done with every earlier one.
 *
 * For one thread. A pool that may hold frames at the end of the program must not be destroyed
 * before the engine, that is never.
 */
class FramePool {
public:
    /** A frame of that size, its content undefined. */
    std::unique_ptr<Frame> take(int width, int height);

    /** Takes a frame back that nobody uses any more. */
    void give(std::unique_ptr<Frame> frame);

    /** Takes over an expired frame with the index that the engine gave it. */
    void hold(std::unique_ptr<Frame> frame, uint64_t index);

    /** Tells that the frame with that index has completed: earlier ones that are held are free. */
    void completed(uint64_t index);

private:
    struct Held {
        std::unique_ptr<Frame> frame;
        uint64_t index;
    };

    std::vector<std::unique_ptr<Frame>> mSpare;
    std::vector<Held> mHeld;
};

}  // namespace player
