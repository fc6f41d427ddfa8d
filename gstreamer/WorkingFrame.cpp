// SPDX-License-Identifier: Apache-2.0
#include "gstreamer/WorkingFrame.h"

#include <utility>

namespace displayengine::gst {

std::shared_ptr<WorkingFrame> WorkingFrame::copyOf(GstBuffer* input, const GstVideoInfo& info,
                                                   GstBufferPool* pool, const HeldCount& held) {
    GstVideoFrame from;
    // The mapping copies a format that it does not change.
    auto* const format = const_cast<GstVideoInfo*>(&info);
    if (!gst_video_frame_map(&from, format, input, GST_MAP_READ)) {
        return nullptr;
    }
    GstBuffer* buffer = nullptr;
    GstVideoFrame to;
    std::shared_ptr<WorkingFrame> result;
    if (gst_buffer_pool_acquire_buffer(pool, &buffer, nullptr) == GST_FLOW_OK) {
        if (gst_video_frame_map(&to, format, buffer, GST_MAP_READWRITE)) {
            result.reset(new WorkingFrame(to, held));
            if (!gst_video_frame_copy(&to, &from)) {
                result.reset();
            }
        } else {
            gst_buffer_unref(buffer);
        }
    }
    gst_video_frame_unmap(&from);
    return result;
}

WorkingFrame::WorkingFrame(const GstVideoFrame& mapped, HeldCount held)
    : mMapped(mapped), mHeld(std::move(held)) {
    ++*mHeld;
}

WorkingFrame::~WorkingFrame() {
    handBack();
    if (mMapped.buffer != nullptr) {
        gst_buffer_unref(takeBuffer());
    }
}

media::Frame WorkingFrame::planes() const {
    return {static_cast<uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&mMapped, 0)),
            static_cast<uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&mMapped, 1)),
            GST_VIDEO_FRAME_WIDTH(&mMapped), GST_VIDEO_FRAME_HEIGHT(&mMapped),
            GST_VIDEO_FRAME_PLANE_STRIDE(&mMapped, 0)};
}

void WorkingFrame::handBack() {
    if (!mIsHandedBack.exchange(true, std::memory_order_acq_rel)) {
        --*mHeld;
    }
}

GstBuffer* WorkingFrame::takeBuffer() {
    GstBuffer* const buffer = mMapped.buffer;
    // The mapping holds a reference of its own.
    gst_video_frame_unmap(&mMapped);
    mMapped.buffer = nullptr;
    return buffer;
}

bool WorkingPool::configure(const GstVideoInfo& info) {
    clear();
    mPool = gst_video_buffer_pool_new();
    GstStructure* const config = gst_buffer_pool_get_config(mPool);
    GstCaps* const caps = gst_video_info_to_caps(&info);
    gst_buffer_pool_config_set_params(config, caps, static_cast<guint>(GST_VIDEO_INFO_SIZE(&info)),
                                      0, 0);
    gst_caps_unref(caps);
    return gst_buffer_pool_set_config(mPool, config) && gst_buffer_pool_set_active(mPool, TRUE);
}

void WorkingPool::clear() {
    if (mPool != nullptr) {
        gst_buffer_pool_set_active(mPool, FALSE);
        gst_clear_object(&mPool);
    }
}

}  // namespace displayengine::gst
