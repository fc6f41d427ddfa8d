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

// Rows begin at multiples of so many pixels.
constexpr uint32_t kStrideAlignment = 16;
constexpr uint32_t kMaxDimension = 1 << 16;

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
    Words words = {kMagic, width, height, stride, static_cast<uint32_t>(format), layerCount};
    words[USAGE] = static_cast<uint32_t>(usage);
    words[FDS] = 1;
    words[USAGE_HIGH] = static_cast<uint32_t>(usage >> 32);
    const size_t bytes = memorySize(words);
    mInitCheck = bytes > 0 ? adopt(makeMemory(bytes), words) : status_t{BAD_VALUE};
}

void GraphicBuffer::release() {
    if (mAddress != nullptr) {
        munmap(mAddress, memorySize(mWords));
        close(mFd);
    }
    mWords = {kMagic};
    mFd = -1;
    mAddress = nullptr;
    mInitCheck = NO_INIT;
}

/** Bytes that the image needs; 0 for one that cannot be. */
size_t GraphicBuffer::memorySize(const Words& words) {
    const bool subsampled = words[FORMAT] == HAL_PIXEL_FORMAT_YCRCB_420_SP;
    const size_t height = words[HEIGHT];
    const size_t stride = words[STRIDE];
    if ((!subsampled && words[FORMAT] != PIXEL_FORMAT_RGBA_8888) || words[WIDTH] == 0 ||
        height == 0 || height > kMaxDimension || stride > kMaxDimension || stride < words[WIDTH] ||
        words[LAYERS] != 1) {
        return 0;
    }
    // Subsampled chroma takes whole rows: an odd height is rounded up. Nothing overflows 64 bits.
    return subsampled ? (height + 1) / 2 * 2 * stride * 3 / 2 : height * stride * 4;
}

/** Maps the memory behind `fd` and owns both from here on; closes `fd` when that fails. */
status_t GraphicBuffer::adopt(int fd, const Words& words) {
    transport::UniqueFd owned(fd);
    void* address =
        mmap(nullptr, memorySize(words), PROT_READ | PROT_WRITE, MAP_SHARED, owned.get(), 0);
    if (address == MAP_FAILED) {
        return NO_MEMORY;
    }
    mWords = words;
    mFd = owned.release();
    mAddress = address;
    mInitCheck = OK;
    return OK;
}

status_t GraphicBuffer::lock(uint32_t /*usage*/, void** address) {
    *address = mAddress;
    return mAddress != nullptr ? OK : NO_INIT;
}

status_t GraphicBuffer::flatten(void*& buffer, size_t& size, int*& fds, size_t& count) const {
    if (size < sizeof mWords || count < getFdCount()) {
        return NO_MEMORY;
    }
    std::memcpy(buffer, mWords.data(), sizeof mWords);
    buffer = static_cast<uint8_t*>(buffer) + sizeof mWords;
    size -= sizeof mWords;
    if (mFd >= 0) {
        *fds++ = mFd;
        --count;
    }
    return OK;
}

status_t GraphicBuffer::unflatten(const void*& buffer, size_t& size, const int*& fds,
                                  size_t& count) {
    release();
    Words words;
    if (size < sizeof words) {
        return NO_MEMORY;
    }
    std::memcpy(words.data(), buffer, sizeof words);
    buffer = static_cast<const uint8_t*>(buffer) + sizeof words;
    size -= sizeof words;
    if (words[MAGIC] != kMagic || words[INTEGERS] != 0 || words[FDS] > 1) {
        return BAD_VALUE;
    }
    if (count < words[FDS]) {
        return NO_MEMORY;
    }
    if (words[FDS] == 0) {
        return OK;  // the other side's buffer has no memory either
    }
    const int fd = *fds++;
    --count;
    const size_t bytes = memorySize(words);
    if (bytes == 0 || !isSharedMemory(fd, bytes)) {
        return BAD_VALUE;
    }
    return adopt(fcntl(fd, F_DUPFD_CLOEXEC, 0), words);
}

}  // namespace android
