// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Errors.h>
#include <utils/Flattenable.h>
#include <utils/RefBase.h>

#include <array>
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
 * is made. The processes agree among themselves on who accesses the pixels. Not thread-safe: the
 * caller keeps unflatten() apart from other uses of the same object.
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
     * OK with memory, NO_INIT without; BAD_VALUE for impossible dimensions or an unsupported
     * format, NO_MEMORY when the system has none.
     */
    status_t initCheck() const { return mInitCheck; }

    uint32_t getWidth() const { return mWords[WIDTH]; }
    uint32_t getHeight() const { return mWords[HEIGHT]; }
    /** Pixels from one row to the next. */
    uint32_t getStride() const { return mWords[STRIDE]; }
    PixelFormat getPixelFormat() const { return static_cast<PixelFormat>(mWords[FORMAT]); }

    /** Gives access to the pixels until unlock(); NO_INIT without memory. */
    status_t lock(uint32_t usage, void** address);
    status_t unlock() { return mAddress != nullptr ? OK : NO_INIT; }

    size_t getFlattenedSize() const { return sizeof(Words); }
    size_t getFdCount() const { return mWords[FDS]; }
    status_t flatten(void*& buffer, size_t& size, int*& fds, size_t& count) const;
    /**
     * Maps the memory of another process's buffer in place of the present one, after checking the
     * description. A refused one (BAD_VALUE, NO_MEMORY) leaves a buffer without memory.
     */
    status_t unflatten(const void*& buffer, size_t& size, const int*& fds, size_t& count);

protected:
    ~GraphicBuffer() override { release(); }

private:
    /** The flat form. Words without a name keep the places of what only a device's buffer has. */
    enum Word : size_t {
        MAGIC,
        WIDTH,
        HEIGHT,
        STRIDE,
        FORMAT,
        LAYERS,
        USAGE,
        FDS = 10,
        INTEGERS,
        USAGE_HIGH,
        WORDS,
    };
    using Words = std::array<uint32_t, WORDS>;
    static constexpr uint32_t kMagic = 0x47423031;  // 'GB01'

    static size_t memorySize(const Words& words);
    status_t adopt(int fd, const Words& words);
    void release();

    Words mWords = {kMagic};
    void* mAddress = nullptr;
    int mFd = -1;
    status_t mInitCheck = NO_INIT;
};

}  // namespace android
