// SPDX-License-Identifier: Apache-2.0
#include "Frame.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "Report.h"

namespace checker {
namespace {

constexpr size_t kMargin = 1 << 16;

size_t pageSize() {
    static const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

size_t wholePages(size_t size) {
    return (size + pageSize() - 1) / pageSize() * pageSize();
}

size_t planeSize(const FrameShape& shape, int32_t rows) {
    return static_cast<size_t>(shape.stride) * static_cast<size_t>(rows);
}

std::string bytes(size_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

}  // namespace

Memory::Memory(const char* name, size_t size, Surroundings surroundings, const FrameShape& shape)
    : mName(name), mSize(size), mShape(shape) {
    const bool hasMargins = surroundings == Surroundings::kMargins;
    mOpenSize = wholePages(size + (hasMargins ? 2 * kMargin : 0));
    const size_t wholeSize = mOpenSize + 2 * pageSize();
    void* whole = mmap(nullptr, wholeSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (whole == MAP_FAILED) {
        failAndStop("no memory for a frame: " + std::string(std::strerror(errno)));
    }
    mOpen = static_cast<uint8_t*>(whole) + pageSize();
    mprotect(mOpen, mOpenSize, PROT_READ | PROT_WRITE);
    const size_t inFront = surroundings == Surroundings::kGuardInFront  ? 0
                           : surroundings == Surroundings::kGuardBehind ? mOpenSize - size
                                                                        : kMargin;
    mBegin = mOpen + inFront;
    watch();
}

void Memory::watch() const {
    watchMemory({reinterpret_cast<uintptr_t>(mBegin), mSize, mName, mShape, mIsTakenAway});
}

void Memory::fill(uint32_t seed) const {
    for (size_t i = 0; i < mOpenSize; ++i) {
        mOpen[i] = pattern(i, seed);
    }
}

std::string Memory::overrun(uint32_t seed) const {
    const auto begin = static_cast<size_t>(mBegin - mOpen);
    const auto changed = [&](size_t from, size_t to, size_t* nearest, bool isBehind) {
        size_t count = 0;
        for (size_t i = from; i < to; ++i) {
            if (mOpen[i] != pattern(i, seed)) {
                const size_t away = isBehind ? i - from + 1 : to - i;
                *nearest = count == 0 ? away : std::min(*nearest, away);
                ++count;
            }
        }
        return count;
    };
    for (const bool isBehind : {true, false}) {
        size_t nearest = 0;
        const size_t count = isBehind ? changed(begin + mSize, mOpenSize, &nearest, true)
                                      : changed(0, begin, &nearest, false);
        if (count > 0) {
            return bytes(count) + (isBehind ? " behind the " : " in front of the ") + mName +
                   (nearest > 1 ? " (" + std::to_string(nearest) + " away)" : "");
        }
    }
    return "";
}

void Memory::takeAway() {
    mIsTakenAway = true;
    watch();
    mprotect(mOpen, mOpenSize, PROT_NONE);
}

void Memory::giveBack() {
    mprotect(mOpen, mOpenSize, PROT_READ | PROT_WRITE);
    mIsTakenAway = false;
    watch();
}

Frame::Frame(const FrameShape& shape, Surroundings surroundings, uint64_t stream)
    : mShape(shape),
      mLuma("luma plane", planeSize(shape, shape.height), surroundings, shape),
      mChroma("chroma plane", planeSize(shape, shape.chromaRows()), surroundings, shape),
      mList{{&mNode.links, &mNode.links}, 1},
      mNode{
          {&mList.ends, &mList.ends},
          {stream, 0, shape.width, shape.height, shape.stride, 0, mLuma.begin(), mChroma.begin()}} {
    draw(1);
}

Aisr::BufferInfo Frame::info() const {
    const AisrBuffer& buffer = mNode.buffer;
    return {buffer.id, buffer.y, buffer.uv, buffer.width, buffer.height, buffer.stride, buffer.idx};
}

std::string Frame::text() const {
    return "frame " + std::to_string(mNode.buffer.idx) + ", " + checker::text(mShape);
}

/** Calls `func(name, row number, row, bytes of the picture in the row)`. */
template <typename FUNC>
void Frame::forEachRow(FUNC func) const {
    for (const Memory* plane : {&mLuma, &mChroma}) {
        const bool isLuma = plane == &mLuma;
        const int32_t rows = isLuma ? mShape.height : mShape.chromaRows();
        const int32_t width =
            isLuma ? mShape.width : std::min((mShape.width + 1) / 2 * 2, mShape.stride);
        for (int32_t row = 0; row < rows; ++row) {
            func(*plane, row, plane->begin() + planeSize(mShape, row), static_cast<size_t>(width));
        }
    }
}

void Frame::draw(uint32_t seed) {
    mSeed = seed;
    mLuma.fill(seed);
    mChroma.fill(seed);
    uint32_t noise = seed * 2654435761U + 1;
    forEachRow([&](const Memory&, int32_t row, uint8_t* bytes, size_t width) {
        for (size_t x = 0; x < width; ++x) {
            noise = noise * 1664525U + 1013904223U;
            const bool isBright = (x / 24 + static_cast<size_t>(row) / 24) % 2 == 0;
            bytes[x] = static_cast<uint8_t>((isBright ? 170 : 60) + (noise >> 28));
        }
    });
    mDrawn.assign(mLuma.begin(), mLuma.begin() + mLuma.size());
    mDrawn.insert(mDrawn.end(), mChroma.begin(), mChroma.begin() + mChroma.size());
}

void Frame::next() {
    std::memcpy(mLuma.begin(), mDrawn.data(), mLuma.size());
    std::memcpy(mChroma.begin(), mDrawn.data() + mLuma.size(), mChroma.size());
    ++mNode.buffer.idx;
}

std::string Frame::overrun() const {
    const std::string luma = mLuma.overrun(mSeed);
    return luma.empty() ? mChroma.overrun(mSeed) : luma;
}

std::string Frame::paddingWritten() const {
    std::string found;
    const uint8_t* drawn = mDrawn.data();
    forEachRow([&](const Memory& plane, int32_t row, const uint8_t* bytes, size_t width) {
        for (auto x = width; found.empty() && x < static_cast<size_t>(mShape.stride); ++x) {
            if (bytes[x] != drawn[x]) {
                found = std::string(plane.name()) + ", row " + std::to_string(row) + ", column " +
                        std::to_string(x);
            }
        }
        drawn += mShape.stride;
    });
    return found;
}

std::vector<uint8_t> Frame::picture() const {
    std::vector<uint8_t> all;
    forEachRow([&](const Memory&, int32_t, const uint8_t* bytes, size_t width) {
        all.insert(all.end(), bytes, bytes + width);
    });
    return all;
}

void Frame::takeAway() {
    mLuma.takeAway();
    mChroma.takeAway();
}

void Frame::giveBack() {
    mLuma.giveBack();
    mChroma.giveBack();
}

}  // namespace checker
