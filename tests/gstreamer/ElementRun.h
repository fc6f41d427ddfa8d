// SPDX-License-Identifier: Apache-2.0
// The element in the test's own process, between two pads of the test's.
#pragma once

#include <gst/check/gstharness.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/ThreadState.h"

/** One form of NV12 frames in memory. */
struct Layout {
    int width;
    int height;
    int yStride;
    int uvStride;
    size_t gap; /**< Bytes before each plane. */

    size_t chromaRows() const { return static_cast<size_t>(height + 1) / 2; }
    size_t uvOffset() const { return gap + static_cast<size_t>(yStride * height) + gap; }
    size_t size() const { return uvOffset() + static_cast<size_t>(uvStride) * chromaRows(); }
    std::string caps(const std::string& rate) const {
        return "video/x-raw,format=NV12,width=" + std::to_string(width) +
               ",height=" + std::to_string(height) + ",framerate=" + rate;
    }
};

/** The rows of a frame without what lies between them: luma, then chroma. */
inline std::vector<uint8_t> pixels(GstBuffer* buffer, const Layout& layout) {
    GstVideoInfo info;
    gst_video_info_set_format(&info, GST_VIDEO_FORMAT_NV12, static_cast<guint>(layout.width),
                              static_cast<guint>(layout.height));
    GstVideoFrame frame;
    std::vector<uint8_t> result;
    if (gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ) == FALSE) {
        ADD_FAILURE() << "a buffer that holds no frame";
        return result;
    }
    for (guint plane = 0; plane < 2; ++plane) {
        const auto* data = static_cast<uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, plane));
        const int bytes = plane == 0 ? layout.width : (layout.width + 1) / 2 * 2;
        for (int row = 0; row < GST_VIDEO_FRAME_COMP_HEIGHT(&frame, plane); ++row) {
            const auto* start = data + row * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, plane);
            result.insert(result.end(), start, start + bytes);
        }
    }
    gst_video_frame_unmap(&frame);
    return result;
}

/** An element with its bus, fed and drained by the test. */
class ElementRun {
public:
    ElementRun() {
        // Nothing is needed but the element, from the build.
        setenv("GST_REGISTRY_DISABLE", "yes", 1);
        gst_init(nullptr, nullptr);
        GError* error = nullptr;
        static GstPlugin* const plugin = gst_plugin_load_file(PLUGIN_FILE, &error);
        EXPECT_NE(plugin, nullptr) << (error != nullptr ? error->message : "");
        mHarness = gst_harness_new("displayenhance");
        mBus = gst_bus_new();
        gst_element_set_bus(element(), mBus);
    }
    ~ElementRun() {
        gst_element_set_bus(element(), nullptr);
        gst_object_unref(mBus);
        gst_harness_teardown(mHarness);
    }
    ElementRun(const ElementRun&) = delete;
    ElementRun& operator=(const ElementRun&) = delete;

    GstElement* element() const { return mHarness->element; }
    GstHarness* harness() const { return mHarness; }

    void setFormat(const Layout& layout, const std::string& rate = "25/1") {
        mLayout = layout;
        gst_harness_set_src_caps_str(mHarness, layout.caps(rate).c_str());
    }

    /** A frame of stripes and noise, which no sharpening leaves as it is. */
    GstBuffer* makeFrame() {
        GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, mLayout.size(), nullptr);
        GstMapInfo map;
        gst_buffer_map(buffer, &map, GST_MAP_WRITE);
        for (size_t i = 0; i < map.size; ++i) {
            map.data[i] = static_cast<guint8>((i / 7 % 2 * 90) + i * i % 31 + 40);
        }
        gst_buffer_unmap(buffer, &map);
        gsize offsets[GST_VIDEO_MAX_PLANES] = {mLayout.gap, mLayout.uvOffset()};
        gint strides[GST_VIDEO_MAX_PLANES] = {mLayout.yStride, mLayout.uvStride};
        gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_NV12,
                                       static_cast<guint>(mLayout.width),
                                       static_cast<guint>(mLayout.height), 2, offsets, strides);
        GST_BUFFER_PTS(buffer) = mTime;
        mTime += mGap;
        return buffer;
    }
    /** The time between frames from now on. */
    void setGap(GstClockTime gap) { mGap = gap; }

    /** Takes a frame and gives what the element pushes for it; the caller unrefs. */
    GstBuffer* push(GstBuffer* buffer) {
        EXPECT_EQ(gst_harness_push(mHarness, buffer), GST_FLOW_OK);
        return gst_harness_try_pull(mHarness);
    }
    /** Pushes a frame and gives the outcome that is written on it: "not-offered size". */
    std::string outcome() {
        GstBuffer* const pushed = push(makeFrame());
        const std::string result = outcomeOf(pushed);
        gst_buffer_unref(pushed);
        return result;
    }
    static std::string outcomeOf(GstBuffer* buffer) {
        GstCustomMeta* const meta = gst_buffer_get_custom_meta(buffer, "displayengine-outcome");
        const GstStructure* const fields = gst_custom_meta_get_structure(meta);
        const std::string reason = gst_structure_get_string(fields, "reason");
        return gst_structure_get_string(fields, "outcome") + (reason.empty() ? "" : " " + reason);
    }

    std::string inactiveReason() const {
        gchar* reason = nullptr;
        gboolean isActive = TRUE;
        g_object_get(element(), "inactive-reason", &reason, "active", &isActive, nullptr);
        const std::string result = reason;
        g_free(reason);
        EXPECT_EQ(isActive != FALSE, result.empty());
        return result;
    }
    guint64 count(const char* statistic) const {
        GstStructure* stats = nullptr;
        g_object_get(element(), "stats", &stats, nullptr);
        guint64 value = 0;
        EXPECT_NE(gst_structure_get_uint64(stats, statistic, &value), FALSE) << statistic;
        gst_structure_free(stats);
        return value;
    }

    /** The messages since the last call: "warning", or "displayenhance size" for the element's own.
     */
    std::vector<std::string> messages() {
        std::vector<std::string> result;
        while (GstMessage* const message = gst_bus_pop(mBus)) {
            const GstStructure* const fields = gst_message_get_structure(message);
            const bool isOwn = GST_MESSAGE_TYPE(message) == GST_MESSAGE_ELEMENT;
            if (isOwn || GST_MESSAGE_TYPE(message) == GST_MESSAGE_WARNING ||
                GST_MESSAGE_TYPE(message) == GST_MESSAGE_INFO ||
                GST_MESSAGE_TYPE(message) == GST_MESSAGE_QOS ||
                GST_MESSAGE_TYPE(message) == GST_MESSAGE_LATENCY) {
                result.push_back(GST_MESSAGE_TYPE_NAME(message));
                result.back() +=
                    isOwn ? std::string(" ") + gst_structure_get_string(fields, "reason") : "";
            }
            gst_message_unref(message);
        }
        return result;
    }

private:
    GstHarness* mHarness;
    GstBus* mBus;
    Layout mLayout{};
    GstClockTime mTime = 0;
    GstClockTime mGap = 40 * GST_MSECOND;
};
