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
        }
        gst_buffer_unref(buffer);
    }
    if (result != nullptr && !gst_video_frame_copy(&to, &from)) {
        result.reset();
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
        gst_video_frame_unmap(&mMapped);
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
    GstBuffer* const buffer = gst_buffer_ref(mMapped.buffer);
    gst_video_frame_unmap(&mMapped);
    mMapped.buffer = nullptr;
    return buffer;
}

WorkingPool makePool(const GstVideoInfo& info) {
    WorkingPool pool(gst_video_buffer_pool_new());
    GstStructure* const config = gst_buffer_pool_get_config(pool.get());
    GstCaps* const caps = gst_video_info_to_caps(&info);
    gst_buffer_pool_config_set_params(config, caps, static_cast<guint>(GST_VIDEO_INFO_SIZE(&info)),
                                      0, 0);
    gst_caps_unref(caps);
    const bool isReady = gst_buffer_pool_set_config(pool.get(), config) &&
                         gst_buffer_pool_set_active(pool.get(), TRUE);
    return isReady ? std::move(pool) : nullptr;
}

}  // namespace displayengine::gst
