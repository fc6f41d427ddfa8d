// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "UniqueFd.h"

namespace android {
namespace {

constexpr uint32_t kMagic = 0x47423031;  // 'GB01'

// Rows begin at multiples of so many pixels.
constexpr uint32_t kStrideAlignment = 16;
constexpr uint32_t kMaxDimension = 1 << 16;

/** The flat form. The unused words keep the places that a device's buffer has in it. */
struct FlatBuffer {
    uint32_t magic;
    uint32_t width;
    uint32_t height;
    uint32_t stride;
    int32_t format;
    uint32_t layerCount;
    uint32_t usageLow;
    uint32_t unusedId[2];
    uint32_t unusedGeneration;
    uint32_t fdCount;
    uint32_t unusedIntegerCount;
    uint32_t usageHigh;

    uint64_t usage() const { return (uint64_t{usageHigh} << 32) | usageLow; }
};
static_assert(sizeof(FlatBuffer) == 13 * sizeof(uint32_t), "the flat form has no gaps");

/** Bits that one pixel takes, 0 for a format that is not supported. */
uint32_t bitsPerPixel(PixelFormat format) {
    switch (format) {
        case PIXEL_FORMAT_RGBA_8888:
        case PIXEL_FORMAT_RGBX_8888:
        case PIXEL_FORMAT_BGRA_8888:
            return 32;
        case PIXEL_FORMAT_RGB_565:
            return 16;
        case HAL_PIXEL_FORMAT_YCRCB_420_SP:
        case HAL_PIXEL_FORMAT_YCBCR_420_888:
            return 12;
        default:
            return 0;
    }
}

/** 0, which no image has, for a width beyond every limit. */
uint32_t alignedStride(uint32_t width) {
    return width <= kMaxDimension
               ? (width + kStrideAlignment - 1) / kStrideAlignment * kStrideAlignment
               : 0;
}

/**
 * Whether `fd` is memory of at least `bytes` that its owner can no longer shrink: touching pages
 * that have been cut off would kill this process.
 */
bool isSharedMemory(int fd, size_t bytes) {
    struct stat status {};
    const int seals = fcntl(fd, F_GET_SEALS);
    return seals >= 0 && (seals & F_SEAL_SHRINK) != 0 && fstat(fd, &status) == 0 &&
           static_cast<uint64_t>(status.st_size) >= bytes;
}

}  // namespace

GraphicBuffer::GraphicBuffer() = default;

GraphicBuffer::GraphicBuffer(uint32_t width, uint32_t height, PixelFormat format,
                             uint32_t layerCount, uint64_t usage,
                             const std::string& requestorName) {
    const Shape shape = {width, height, alignedStride(width), format, layerCount, usage};
    size_t bytes = 0;
    mInitCheck = memorySize(shape, &bytes) ? allocate(requestorName, bytes) : status_t{BAD_VALUE};
    if (mInitCheck == OK) {
        mShape = shape;
    }
}

GraphicBuffer::~GraphicBuffer() {
    release();
}

void GraphicBuffer::release() {
    if (mAddress != nullptr) {
        munmap(mAddress, mBytes);
    }
    if (mFd >= 0) {
        close(mFd);
    }
    mShape = Shape();
    mFd = -1;
    mAddress = nullptr;
    mBytes = 0;
    mInitCheck = NO_INIT;
}

/** Size of the memory that an image of `shape` needs; false for a shape that cannot be. */
bool GraphicBuffer::memorySize(const Shape& shape, size_t* bytes) {
    const uint32_t bits = bitsPerPixel(shape.format);
    if (bits == 0 || shape.width == 0 || shape.height == 0 || shape.layerCount != 1 ||
        shape.height > kMaxDimension || shape.stride > kMaxDimension ||
        shape.stride < shape.width) {
        return false;
    }
    // Subsampled chroma takes whole rows: an odd height is rounded up. Nothing overflows 64 bits.
    const uint64_t rows = bits == 12 ? (shape.height + 1u) / 2 * 2 : shape.height;
    *bytes = static_cast<size_t>(rows * shape.stride * bits / 8);
    return true;
}

status_t GraphicBuffer::allocate(const std::string& name, size_t bytes) {
    constexpr size_t kLongestName = 200;
    transport::UniqueFd fd(
        memfd_create(name.substr(0, kLongestName).c_str(), MFD_CLOEXEC | MFD_ALLOW_SEALING));
    // Sealed, so that no process can cut the memory away under another one that has mapped it.
    if (!fd.ok() || ftruncate(fd.get(), static_cast<off_t>(bytes)) != 0 ||
        fcntl(fd.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) != 0) {
        return NO_MEMORY;
    }
    return adopt(fd.release(), bytes);
}

/** Maps the memory behind `fd` and owns both from here on; closes `fd` when that fails. */
status_t GraphicBuffer::adopt(int fd, size_t bytes) {
    transport::UniqueFd owned(fd);
    void* address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, owned.get(), 0);
    if (address == MAP_FAILED) {
        return NO_MEMORY;
    }
    mFd = owned.release();
    mAddress = address;
    mBytes = bytes;
    return OK;
}

status_t GraphicBuffer::lock(uint32_t /*usage*/, void** address) {
    if (mAddress == nullptr) {
        return NO_INIT;
    }
    *address = mAddress;
    return OK;
}

status_t GraphicBuffer::unlock() {
    return mAddress != nullptr ? OK : NO_INIT;
}

size_t GraphicBuffer::getFlattenedSize() const {
    return sizeof(FlatBuffer);
}

size_t GraphicBuffer::getFdCount() const {
    return mFd >= 0 ? 1 : 0;
}

status_t GraphicBuffer::flatten(void*& buffer, size_t& size, int*& fds, size_t& count) const {
    const size_t fdCount = getFdCount();
    if (size < sizeof(FlatBuffer) || count < fdCount) {
        return NO_MEMORY;
    }
    const FlatBuffer flat = {kMagic,
                             mShape.width,
                             mShape.height,
                             mShape.stride,
                             mShape.format,
                             mShape.layerCount,
                             static_cast<uint32_t>(mShape.usage),
                             {},
                             0,
                             static_cast<uint32_t>(fdCount),
                             0,
                             static_cast<uint32_t>(mShape.usage >> 32)};
    FlattenableUtils::write(buffer, size, flat);
    if (fdCount == 1) {
        *fds++ = mFd;
        --count;
    }
    return OK;
}

status_t GraphicBuffer::unflatten(const void*& buffer, size_t& size, const int*& fds,
                                  size_t& count) {
    release();
    if (size < sizeof(FlatBuffer)) {
        return NO_MEMORY;
    }
    FlatBuffer flat{};
    FlattenableUtils::read(buffer, size, flat);
    if (flat.magic != kMagic || flat.unusedIntegerCount != 0 || flat.fdCount > 1) {
        return BAD_VALUE;
    }
    if (count < flat.fdCount) {
        return NO_MEMORY;
    }
    if (flat.fdCount == 0) {
        return OK;  // the other side's buffer has no memory either
    }
    const int fd = *fds++;
    --count;

    const Shape shape = {flat.width,  flat.height,     flat.stride,
                         flat.format, flat.layerCount, flat.usage()};
    size_t bytes = 0;
    if (!memorySize(shape, &bytes) || !isSharedMemory(fd, bytes)) {
        return BAD_VALUE;
    }
    const int duplicate = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    mInitCheck = duplicate >= 0 ? adopt(duplicate, bytes) : status_t{NO_MEMORY};
    if (mInitCheck != OK) {
        release();
        return NO_MEMORY;
    }
    mShape = shape;
    return OK;
}

}  // namespace android
