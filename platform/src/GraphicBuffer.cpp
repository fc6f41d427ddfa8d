// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>

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
};

/**
 * New memory of `bytes`, or -1. It is sealed, so that no process can cut it away under another one
 * that has mapped it.
 */
int makeMemory(size_t bytes) {
    transport::UniqueFd fd(memfd_create("GraphicBuffer", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    const bool made = fd.ok() && ftruncate(fd.get(), static_cast<off_t>(bytes)) == 0 &&
                      fcntl(fd.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0;
    return made ? fd.release() : -1;
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

GraphicBuffer::GraphicBuffer(uint32_t width, uint32_t height, PixelFormat format,
                             uint32_t layerCount, uint64_t usage) {
    // 0, which no image has, for a width beyond the limit.
    const uint32_t stride = width <= kMaxDimension ? (width + kStrideAlignment - 1) /
                                                         kStrideAlignment * kStrideAlignment
                                                   : 0;
    const Shape shape = {width, height, stride, format, layerCount, usage};
    const size_t bytes = memorySize(shape);
    mInitCheck = bytes > 0 ? adopt(makeMemory(bytes), shape) : status_t{BAD_VALUE};
}

void GraphicBuffer::release() {
    if (mAddress != nullptr) {
        munmap(mAddress, memorySize(mShape));
        close(mFd);
    }
    mShape = Shape();
    mFd = -1;
    mAddress = nullptr;
    mInitCheck = NO_INIT;
}

/** Bytes that an image of `shape` needs; 0 for a shape that cannot be. */
size_t GraphicBuffer::memorySize(const Shape& shape) {
    const bool subsampled = shape.format == HAL_PIXEL_FORMAT_YCRCB_420_SP;
    if ((!subsampled && shape.format != PIXEL_FORMAT_RGBA_8888) || shape.width == 0 ||
        shape.height == 0 || shape.height > kMaxDimension || shape.stride > kMaxDimension ||
        shape.stride < shape.width || shape.layerCount != 1) {
        return 0;
    }
    // Subsampled chroma takes whole rows: an odd height is rounded up. Nothing overflows 64 bits.
    const size_t rows = subsampled ? (shape.height + size_t{1}) / 2 * 2 : shape.height;
    return rows * shape.stride * (subsampled ? 12 : 32) / 8;
}

/** Maps the memory behind `fd` and owns both from here on; closes `fd` when that fails. */
status_t GraphicBuffer::adopt(int fd, const Shape& shape) {
    transport::UniqueFd owned(fd);
    void* address =
        mmap(nullptr, memorySize(shape), PROT_READ | PROT_WRITE, MAP_SHARED, owned.get(), 0);
    if (address == MAP_FAILED) {
        return NO_MEMORY;
    }
    mShape = shape;
    mFd = owned.release();
    mAddress = address;
    mInitCheck = OK;
    return OK;
}

status_t GraphicBuffer::lock(uint32_t /*usage*/, void** address) {
    if (mAddress == nullptr) {
        return NO_INIT;
    }
    *address = mAddress;
    return OK;
}

status_t GraphicBuffer::flatten(void*& buffer, size_t& size, int*& fds, size_t& count) const {
    static_assert(sizeof(FlatBuffer) == kFlatWords * sizeof(uint32_t), "the flat form has no gaps");
    if (size < sizeof(FlatBuffer) || count < getFdCount()) {
        return NO_MEMORY;
    }
    FlatBuffer flat{};
    flat.magic = kMagic;
    flat.width = mShape.width;
    flat.height = mShape.height;
    flat.stride = mShape.stride;
    flat.format = mShape.format;
    flat.layerCount = mShape.layerCount;
    flat.usageLow = static_cast<uint32_t>(mShape.usage);
    flat.fdCount = static_cast<uint32_t>(getFdCount());
    flat.usageHigh = static_cast<uint32_t>(mShape.usage >> 32);
    std::memcpy(buffer, &flat, sizeof flat);
    buffer = static_cast<uint8_t*>(buffer) + sizeof flat;
    size -= sizeof flat;
    if (flat.fdCount == 1) {
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
    std::memcpy(&flat, buffer, sizeof flat);
    buffer = static_cast<const uint8_t*>(buffer) + sizeof flat;
    size -= sizeof flat;
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
    const Shape shape = {flat.width,      flat.height,
                         flat.stride,     flat.format,
                         flat.layerCount, uint64_t{flat.usageHigh} << 32 | flat.usageLow};
    const size_t bytes = memorySize(shape);
    if (bytes == 0 || !isSharedMemory(fd, bytes)) {
        return BAD_VALUE;
    }
    return adopt(fcntl(fd, F_DUPFD_CLOEXEC, 0), shape);
}

}  // namespace android
