// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gst/video/video.h>

#include <memory>

namespace player {

/** Gives up one reference, or frees what is not counted. */
struct Unref {
    void operator()(GstElement* object) const { gst_object_unref(object); }
    void operator()(GstPad* object) const { gst_object_unref(object); }
    void operator()(GstBus* object) const { gst_object_unref(object); }
    void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
    void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
    void operator()(GstMessage* message) const { gst_message_unref(message); }
    void operator()(GstSample* sample) const { gst_sample_unref(sample); }
    void operator()(GError* error) const { g_error_free(error); }
    void operator()(char* text) const { g_free(text); }
};

/** The holder of one reference. */
template <class T>
using Ref = std::unique_ptr<T, Unref>;

/** The planes of a buffer, mapped for the life of the object. */
class Planes {
public:
    Planes(GstBuffer* buffer, const GstVideoInfo& info, GstMapFlags access)
        : mIsMapped(gst_video_frame_map(&mFrame, &info, buffer, access) != FALSE) {}
    ~Planes() {
        if (mIsMapped) {
            gst_video_frame_unmap(&mFrame);
        }
    }
    Planes(const Planes&) = delete;
    Planes& operator=(const Planes&) = delete;

    explicit operator bool() const { return mIsMapped; }
    int width() const { return GST_VIDEO_FRAME_WIDTH(&mFrame); }
    /** Number of rows of plane 0, the luma, or 1, the chroma. */
    int rows(int plane) const { return GST_VIDEO_FRAME_COMP_HEIGHT(&mFrame, plane); }
    uint8_t* row(int plane, int y) const {
        auto* const data = static_cast<uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&mFrame, plane));
        return data + static_cast<ptrdiff_t>(y) * GST_VIDEO_FRAME_PLANE_STRIDE(&mFrame, plane);
    }

private:
    GstVideoFrame mFrame{};
    const bool mIsMapped;
};

}  // namespace player
