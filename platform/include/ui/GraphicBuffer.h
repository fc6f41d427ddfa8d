// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Errors.h>
#include <utils/Flattenable.h>
#include <utils/RefBase.h>

#include <cstddef>
#include <cstdint>

namespace android {

using PixelFormat = int32_t;

/** The formats that the stand-in has; a device has more. */
enum : PixelFormat {
    PIXEL_FORMAT_NONE = 0,
    PIXEL_FORMAT_RGBA_8888 = 1,
    HAL_PIXEL_FORMAT_YCRCB_420_SP = 0x11,
};

/**
 * An image in memory that processes share by passing a file descriptor. Its size is fixed when it
 * is made. The pixels belong to whoever the processes agree on; the object itself is not locked:
 * unflatten() into a buffer that another thread reads needs the caller's own order.
 */
class GraphicBuffer : public RefBase, public Flattenable<GraphicBuffer> {
public:
    static constexpr uint64_t USAGE_SW_READ_OFTEN = 0x3;
    static constexpr uint64_t USAGE_SW_WRITE_OFTEN = 0x30;

    /** A buffer without memory, to be filled by unflatten(). */
    GraphicBuffer() = default;
    /** Allocates memory for one image, filled with zeros. initCheck() tells the outcome. */
    GraphicBuffer(uint32_t width, uint32_t height, PixelFormat format, uint32_t layerCount,
                  uint64_t usage);

    /**
     * OK with memory, NO_INIT without; BAD_VALUE for dimensions or a format that cannot be,
     * NO_MEMORY when the system has none.
     */
    status_t initCheck() const { return mInitCheck; }

    uint32_t getWidth() const { return mShape.width; }
    uint32_t getHeight() const { return mShape.height; }
    /** Pixels from one row to the next. */
    uint32_t getStride() const { return mShape.stride; }
    PixelFormat getPixelFormat() const { return mShape.format; }

    /** Gives access to the pixels until unlock(); NO_INIT without memory. */
    status_t lock(uint32_t usage, void** address);
    status_t unlock() { return mAddress != nullptr ? OK : NO_INIT; }

    size_t getFlattenedSize() const { return kFlatWords * sizeof(uint32_t); }
    size_t getFdCount() const { return mFd >= 0 ? 1 : 0; }
    status_t flatten(void*& buffer, size_t& size, int*& fds, size_t& count) const;
    /**
     * Maps the memory of another process's buffer in place of the present one. Everything is
     * checked first: a refused description (BAD_VALUE, NO_MEMORY) leaves a buffer without memory.
     */
    status_t unflatten(const void*& buffer, size_t& size, const int*& fds, size_t& count);

protected:
    ~GraphicBuffer() override { release(); }

private:
    static constexpr size_t kFlatWords = 13;

    struct Shape {
        uint32_t width = 0;
        uint32_t height = 0;
        uint32_t stride = 0;
        PixelFormat format = PIXEL_FORMAT_NONE;
        uint32_t layerCount = 0;
        uint64_t usage = 0;
    };

    static size_t memorySize(const Shape& shape);
    status_t adopt(int fd, const Shape& shape);
    void release();

    Shape mShape;
    int mFd = -1;
    void* mAddress = nullptr;
    status_t mInitCheck = NO_INIT;
};

}  // namespace android
