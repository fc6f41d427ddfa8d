// SPDX-License-Identifier: Apache-2.0
// The element in the test's own process, between two pads of the test's.
#pragma once

#include <gst/check/gstharness.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

/** One form of NV12 frames in memory. */
struct Layout {
    int width;
    int height;
    int yStride;
    int uvStride;
    int gap; /**< Bytes before each plane. */

    int uvOffset() const { return 2 * gap + yStride * height; }
    int size() const { return uvOffset() + uvStride * ((height + 1) / 2); }
};

/** A reference to a buffer. */
struct Unref {
    void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
};
using BufferPtr = std::unique_ptr<GstBuffer, Unref>;

/** The rows of a frame without what lies between them: luma, then chroma. */
inline std::vector<uint8_t> pixels(const BufferPtr& buffer, const Layout& layout) {
    GstVideoInfo info;
    gst_video_info_set_format(&info, GST_VIDEO_FORMAT_NV12, static_cast<guint>(layout.width),
                              static_cast<guint>(layout.height));
    GstVideoFrame frame;
    EXPECT_NE(gst_video_frame_map(&frame, &info, buffer.get(), GST_MAP_READ), FALSE);
    std::vector<uint8_t> result;
    for (int plane = 0; plane < 2; ++plane) {
        const auto* row = static_cast<uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, plane));
        for (int i = 0; i < GST_VIDEO_FRAME_COMP_HEIGHT(&frame, plane); ++i) {
            result.insert(result.end(), row,
                          row + (layout.width + plane) / (plane + 1) * (plane + 1));
            row += GST_VIDEO_FRAME_PLANE_STRIDE(&frame, plane);
        }
    }
    gst_video_frame_unmap(&frame);
    return result;
}

/** An element with its bus, fed and drained by the test. */
class ElementRun {
public:
    ElementRun() {
        setenv("GST_REGISTRY_DISABLE", "yes", 1);  // Nothing is needed but the plugin of the build.
        gst_init(nullptr, nullptr);
        static GstPlugin* const plugin = gst_plugin_load_file(PLUGIN_FILE, nullptr);
        EXPECT_NE(plugin, nullptr);
        harness = gst_harness_new("displayenhance");
        gst_element_set_bus(harness->element, mBus);
    }
    ~ElementRun() {
        gst_element_set_bus(harness->element, nullptr);
        gst_object_unref(mBus);
        gst_harness_teardown(harness);
    }

    void setFormat(const Layout& layout, const std::string& rate = "25/1") {
        mLayout = layout;
        const std::string caps = "video/x-raw,format=NV12,width=" + std::to_string(layout.width) +
                                 ",height=" + std::to_string(layout.height) + ",framerate=" + rate;
        gst_harness_set_src_caps_str(harness, caps.c_str());
    }

    void send(GstEvent* event) { gst_harness_push_event(harness, event); }

    /** A frame of stripes and noise, which no sharpening leaves as it is. */
    GstBuffer* makeFrame() {
        std::vector<uint8_t> bytes(static_cast<size_t>(mLayout.size()));
        for (size_t i = 0; i < bytes.size(); ++i) {
            bytes[i] = static_cast<uint8_t>(i / 7 % 2 * 90 + i * i % 31 + 40);
        }
        GstBuffer* const buffer = gst_buffer_new_memdup(bytes.data(), bytes.size());
        gsize offsets[] = {static_cast<gsize>(mLayout.gap), static_cast<gsize>(mLayout.uvOffset())};
        gint strides[] = {mLayout.yStride, mLayout.uvStride};
        gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_NV12,
                                       static_cast<guint>(mLayout.width),
                                       static_cast<guint>(mLayout.height), 2, offsets, strides);
        GST_BUFFER_PTS(buffer) = mTime += gap;
        return buffer;
    }

    /** Takes a frame and gives what the element pushes for it. */
    BufferPtr push(GstBuffer* buffer) {
        EXPECT_EQ(gst_harness_push(harness, buffer), GST_FLOW_OK);
        return BufferPtr(gst_harness_try_pull(harness));
    }
    /** What is written on a pushed buffer: "processed", "not-offered size". */
    static std::string outcome(const BufferPtr& buffer) {
        GstCustomMeta* const meta =
            gst_buffer_get_custom_meta(buffer.get(), "displayengine-outcome");
        const GstStructure* const fields = gst_custom_meta_get_structure(meta);
        const std::string reason = gst_structure_get_string(fields, "reason");
        return gst_structure_get_string(fields, "outcome") + (reason.empty() ? "" : " " + reason);
    }
    /** The outcome of the last of so many frames. */
    std::string outcome(int frames = 1) {
        std::string result;
        for (int i = 0; i < frames; ++i) {
            result = outcome(push(makeFrame()));
        }
        return result;
    }

    /** A property as text: TRUE, a structure, a string in quotes. */
    std::string property(const char* name) const {
        GValue value = G_VALUE_INIT;
        g_object_get_property(G_OBJECT(harness->element), name, &value);
        const std::unique_ptr<gchar, void (*)(void*)> text(g_strdup_value_contents(&value), g_free);
        g_value_unset(&value);
        return text.get();
    }
    bool hasCounted(const std::string& name, int frames) const {
        const std::string field = " " + name + "=(guint64)" + std::to_string(frames) + ",";
        return property("stats").find(field) != std::string::npos;
    }

    /** The messages since the last call: "warning", or "element size" for the element's own. */
    std::vector<std::string> messages() {
        std::vector<std::string> result;
        while (GstMessage* const message = gst_bus_pop(mBus)) {
            const GstStructure* const fields = gst_message_get_structure(message);
            const std::string type = GST_MESSAGE_TYPE_NAME(message);
            if (type == "element") {
                result.push_back(type + " " + gst_structure_get_string(fields, "reason"));
            } else if (type != "state-changed" && type != "stream-status") {
                result.push_back(type);
            }
            gst_message_unref(message);
        }
        return result;
    }

    GstHarness* harness;
    GstClockTime gap = 40 * GST_MSECOND; /**< Between frames from now on. */

private:
    GstBus* const mBus = (gst_init(nullptr, nullptr), gst_bus_new());
    Layout mLayout{};
    GstClockTime mTime = 0;
};
