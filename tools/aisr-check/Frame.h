// SPDX-License-Identifier: Apache-2.0
// Frames and records that show what a library does beside its work.
#pragma once

#include <string>
#include <vector>

#include "Report.h"
#include "common/AisrProcess.h"
#include "common/BufferInfo.h"

namespace checker {

/** What lies around a block of memory. */
enum class Surroundings {
    kMargins,      /**< 64 KiB of a pattern on both sides, which shows what was written. */
    kGuardBehind,  /**< A page behind the last byte that can be neither read nor written. */
    kGuardInFront, /**< Such a page in front of the first byte. */
};

/**
 * Memory mapped apart. It stays mapped to the end of the process: a library that writes too late is
 * one check's finding, and not to crash the others.
 */
class Memory {
public:
    Memory(const std::string& name, size_t size, Surroundings surroundings,
           const FrameShape& shape = {});

    uint8_t* begin() const { return mBegin; }
    size_t size() const { return static_cast<size_t>(mWatched.size); }
    const char* name() const { return mWatched.name; }

    /** Fills the block and its margins with a pattern. */
    void fill(uint32_t seed) const;
    /** "1 byte behind the luma plane" for what was written to the margins; else empty. */
    std::string overrun(uint32_t seed) const;
    /** Makes the block inaccessible; a fault names it as no longer the library's. */
    void takeAway();

private:
    WatchedMemory mWatched;
    uint8_t* mBegin = nullptr;
    uint8_t* mOpen = nullptr; /**< What may be read and written: margins or parts of pages too. */
    size_t mOpenSize = 0;
};

/** An NV12 frame with its planes mapped apart, and the list that submits it. */
class Frame {
public:
    explicit Frame(const FrameShape& shape, Surroundings surroundings = Surroundings::kMargins);
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    AisrBuffer& buffer() { return mNode.buffer; }
    const AisrBufferList& list() const { return mList; }
    const FrameShape& shape() const { return mShape; }
    uint64_t index() const { return mNode.buffer.idx; }
    /** The record that a client gives to the engine. */
    Aisr::BufferInfo info() const;
    /** "frame 3, 768x576, stride 832" */
    std::string text() const;

    /** Draws a picture of edges and noise, and the patterns around it. */
    void draw(uint32_t seed);
    /** Makes it the stream's next frame, with the picture drawn last. */
    void next();

    /** What was written outside the planes, see Memory::overrun(). */
    std::string overrun() const;
    /** "luma plane, row 0, column 1280" for the first byte of padding that was written, or empty.
     */
    std::string paddingWritten() const;
    /** Luma and chroma, with padding. */
    std::string planes() const;
    void takeAway();

private:
    template <typename FUNC>
    void forEachRow(FUNC func) const;

    const FrameShape mShape;
    Memory mLuma;
    Memory mChroma;
    uint32_t mSeed = 0;
    std::string mDrawn; /**< The planes as drawn. */
    AisrBufferList mList;
    AisrBufferNode mNode;
};

}  // namespace checker
