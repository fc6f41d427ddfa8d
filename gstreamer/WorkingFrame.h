// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gst/video/video.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "media/VideoSession.h"

namespace displayengine::gst {

/** How many working frames the processing library may still write. Outlives the element. */
using HeldCount = std::shared_ptr<std::atomic<uint64_t>>;

/**
 * A frame's copy for the processing library, in memory that nobody else sees. It stays mapped from
 * the copying until it is handed back; the last owner, on whatever thread, unmaps it.
 */
class WorkingFrame {
public:
    /** A copy of `input` in a buffer of `pool`; null when either cannot be mapped. */
    static std::shared_ptr<WorkingFrame> copyOf(GstBuffer* input, const GstVideoInfo& info,
                                                GstBufferPool* pool, const HeldCount& held);
    ~WorkingFrame();
    WorkingFrame(const WorkingFrame&) = delete;
    WorkingFrame& operator=(const WorkingFrame&) = delete;

    /** As the engine takes it. Both planes have one stride. */
    media::Frame planes() const;

    /** Nobody writes the frame any more. Once, on any thread. */
    void handBack();
    bool isHandedBack() const { return mIsHandedBack.load(std::memory_order_acquire); }

    /** The buffer, unmapped, for the caller to unref. Once. REQUIRES: handed back. */
    GstBuffer* takeBuffer();

private:
    WorkingFrame(const GstVideoFrame& mapped, HeldCount held);

    GstVideoFrame mMapped; /**< Holds its buffer; null once it has been taken. */
    const HeldCount mHeld;
    std::atomic<bool> mIsHandedBack{false};
};

/** Gives a pool up; frames that are still out keep it until they are back. */
struct ReleasePool {
    void operator()(GstBufferPool* pool) const {
        gst_buffer_pool_set_active(pool, FALSE);
        gst_object_unref(pool);
    }
};
using WorkingPool = std::unique_ptr<GstBufferPool, ReleasePool>;

/**
 * A pool of buffers in the format's usual layout, which has one stride for both planes; null when
 * it cannot be had.
 */
WorkingPool makePool(const GstVideoInfo& info);

}  // namespace displayengine::gst
