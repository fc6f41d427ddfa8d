// SPDX-License-Identifier: Apache-2.0
#include "Frame.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace checker {
namespace {

constexpr size_t kMargin = 1 << 16;

size_t planeSize(const FrameShape& shape, int32_t rows) {
    return static_cast<size_t>(shape.stride) * static_cast<size_t>(rows);
}

/** Noise for the margins, which repeats after this size, and pictures of edges and noise. */
constexpr size_t kPeriod = 1 << 16;
const std::vector<uint8_t>& noise(bool isPicture) {
    static const auto make = [](bool hasEdges) {
        std::vector<uint8_t> bytes(2 * kPeriod);
        uint32_t random = 1;
        for (size_t i = 0; i < bytes.size(); ++i) {
            random = i % kPeriod == 0 ? 1 : random * 1664525U + 1013904223U;
            const int edge = i / 24 % 2 == 0 ? 170 : 60;
            bytes[i] = static_cast<uint8_t>(hasEdges ? edge + static_cast<int>(random >> 28)
                                                     : static_cast<int>(random >> 24));
        }
        return bytes;
    };
    static const std::vector<uint8_t> margins = make(false);
    static const std::vector<uint8_t> picture = make(true);
    return isPicture ? picture : margins;
}

/** The margins' noise from the block's `at` on, up to kPeriod bytes. */
const uint8_t* pattern(size_t at, uint32_t seed) {
    return noise(false).data() + (at + seed * 977) % kPeriod;
}

}  // namespace

Memory::Memory(const std::string& name, size_t size, Surroundings surroundings,
               const FrameShape& shape) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const bool hasMargins = surroundings == Surroundings::kMargins;
    mOpenSize = (size + (hasMargins ? 2 * kMargin : 0) + page - 1) / page * page;
    void* whole =
        mmap(nullptr, mOpenSize + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (whole == MAP_FAILED) {
        failAndStop("there is no memory for a frame");
    }
    mOpen = static_cast<uint8_t*>(whole) + page;
    mprotect(mOpen, mOpenSize, PROT_READ | PROT_WRITE);
    const bool isAtEnd = surroundings == Surroundings::kGuardBehind;
    mBegin = mOpen + (hasMargins ? kMargin : isAtEnd ? mOpenSize - size : 0);
    mWatched = {reinterpret_cast<uintptr_t>(mBegin), static_cast<int64_t>(size), "", shape, false};
    std::snprintf(mWatched.name, sizeof mWatched.name, "%s", name.c_str());
    watchMemory(mWatched);
}

void Memory::fill(uint32_t seed) const {
    for (size_t at = 0; at < mOpenSize; at += kPeriod) {
        std::memcpy(mOpen + at, pattern(at, seed), std::min(kPeriod, mOpenSize - at));
    }
}

std::string Memory::overrun(uint32_t seed) const {
    const auto begin = static_cast<size_t>(mBegin - mOpen);
    const auto changed = [&](size_t from, size_t to) {
        size_t count = 0;
        const uint8_t* expected = pattern(from, seed);
        // Most often nothing is.
        for (size_t i = 0; std::memcmp(mOpen + from + i, expected + i, to - from - i) != 0; ++i) {
            count += mOpen[from + i] != expected[i] ? 1 : 0;
        }
        return count;
    };
    const size_t behind = changed(begin + size(), begin + size() + kMargin);
    const size_t count = behind > 0 ? behind : changed(0, begin);
    return count == 0 ? ""
                      : std::to_string(count) + (count == 1 ? " byte" : " bytes") +
                            (behind > 0 ? " behind the " : " in front of the ") + name();
}

void Memory::takeAway() {
    mWatched.isTakenAway = true;
    watchMemory(mWatched);
    mprotect(mOpen, mOpenSize, PROT_NONE);
}

Frame::Frame(const FrameShape& shape, Surroundings surroundings)
    : mShape(shape),
      mLuma("luma plane", planeSize(shape, shape.height), surroundings, shape),
      mChroma("chroma plane", planeSize(shape, shape.chromaRows()), surroundings, shape),
      mList{{&mNode.links, &mNode.links}, 1},
      mNode{{&mList.ends, &mList.ends},
            {1, 0, shape.width, shape.height, shape.stride, 0, mLuma.begin(), mChroma.begin()}} {
    draw(1);
}

Aisr::BufferInfo Frame::info() const {
    const AisrBuffer& from = mNode.buffer;
    return {from.id, from.y, from.uv, from.width, from.height, from.stride, from.idx};
}

std::string Frame::text() const {
    return "frame " + std::to_string(index()) + ", " + checker::text(mShape);
}

/** Calls `func(plane, row number, row, bytes of the picture in it)`. */
template <typename FUNC>
void Frame::forEachRow(FUNC func) const {
    for (const Memory* plane : {&mLuma, &mChroma}) {
        const bool isLuma = plane == &mLuma;
        const int32_t width = isLuma ? mShape.width : (mShape.width + 1) / 2 * 2;
        for (int32_t row = 0; row < (isLuma ? mShape.height : mShape.chromaRows()); ++row) {
            func(*plane, row, plane->begin() + planeSize(mShape, row), static_cast<size_t>(width));
        }
    }
}

void Frame::draw(uint32_t seed) {
    mSeed = seed;
    mLuma.fill(seed);
    mChroma.fill(seed);
    forEachRow([&](const Memory&, int32_t row, uint8_t* bytes, size_t width) {
        // The edges lie elsewhere in the next row.
        const size_t from = (static_cast<size_t>(row) * 7 + seed * 977) % kPeriod;
        std::memcpy(bytes, noise(true).data() + from, width);
    });
    mDrawn = planes();
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
    const auto* drawn = reinterpret_cast<const uint8_t*>(mDrawn.data());
    forEachRow([&](const Memory& plane, int32_t row, const uint8_t* bytes, size_t width) {
        const auto stride = static_cast<size_t>(mShape.stride);
        size_t x = width;
        if (found.empty() && std::memcmp(bytes + x, drawn + x, stride - x) != 0) {
            while (bytes[x] == drawn[x]) {
                ++x;
            }
            found = std::string(plane.name()) + ", row " + std::to_string(row) + ", column " +
                    std::to_string(x);
        }
        drawn += mShape.stride;
    });
    return found;
}

std::string Frame::planes() const {
    // Copied at once in any build, as the elements of a vector are not.
    const auto* luma = reinterpret_cast<const char*>(mLuma.begin());
    const auto* chroma = reinterpret_cast<const char*>(mChroma.begin());
    return std::string(luma, mLuma.size()).append(chroma, mChroma.size());
}

void Frame::takeAway() {
    mLuma.takeAway();
    mChroma.takeAway();
}

}  // namespace checker
