// SPDX-License-Identifier: Apache-2.0
// The time of a frame through the element displayenhance, between two pads, beside a filter that
// does nothing but copy the frame, with the same base class and a pool of buffers. The processing
// library does nothing, and element and worker share a core.
#include <benchmark/benchmark.h>
#include <gst/check/gstharness.h>
#include <gst/video/gstvideofilter.h>

#include "nothing/NothingProcess.h"
#include "support/Affinity.h"
#include "support/EngineSetup.h"
#include "support/Process.h"

struct CopyFilter {
    GstVideoFilter parent;
};
struct CopyFilterClass {
    GstVideoFilterClass parent;
};
G_DEFINE_TYPE(CopyFilter, copy_filter, GST_TYPE_VIDEO_FILTER)

static void copy_filter_init(CopyFilter*) {}

static void copy_filter_class_init(CopyFilterClass* klass) {
    gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(klass), "Copy", "Filter/Effect/Video",
                                          "Copies each frame", "bench");
    GstCaps* const caps = gst_caps_from_string(GST_VIDEO_CAPS_MAKE("NV12"));
    for (const GstPadDirection direction : {GST_PAD_SINK, GST_PAD_SRC}) {
        const char* const name = direction == GST_PAD_SINK ? "sink" : "src";
        gst_element_class_add_pad_template(
            GST_ELEMENT_CLASS(klass), gst_pad_template_new(name, direction, GST_PAD_ALWAYS, caps));
    }
    gst_caps_unref(caps);
    reinterpret_cast<GstVideoFilterClass*>(klass)->transform_frame =
        [](GstVideoFilter*, GstVideoFrame* in, GstVideoFrame* out) {
            return gst_video_frame_copy(out, in) != FALSE ? GST_FLOW_OK : GST_FLOW_ERROR;
        };
}

namespace {

/** Sends one buffer round and round; `processed` of each round are to be processed. */
void element(benchmark::State& state, const char* factory, const char* rate, int64_t processed) {
    GstHarness* const harness = gst_harness_new(factory);
    const std::string caps = "video/x-raw,format=NV12,width=1280,height=720,framerate=";
    gst_harness_set_src_caps_str(harness, (caps + rate).c_str());
    GstBuffer* const frame = gst_buffer_new_allocate(nullptr, 1280 * 720 * 3 / 2, nullptr);
    gst_buffer_memset(frame, 0, 0x80, static_cast<gsize>(-1));
    const uint64_t before = gNothingProcessed.load(std::memory_order_acquire);
    for (auto _ : state) {
        gst_harness_push(harness, gst_buffer_ref(frame));
        gst_buffer_unref(gst_harness_pull(harness));
    }
    if (gNothingProcessed.load(std::memory_order_acquire) - before !=
        static_cast<uint64_t>(state.iterations() * processed)) {
        state.SkipWithError("a frame was refused, failed or expired");
    }
    gst_buffer_unref(frame);
    gst_harness_teardown(harness);
}
BENCHMARK_CAPTURE(element, enhance, "displayenhance", "30/1", 1)->UseRealTime();
BENCHMARK_CAPTURE(element, passed, "displayenhance", "60/1", 0)->UseRealTime();
BENCHMARK_CAPTURE(element, copy, "copyfilter", "30/1", 0)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    bench::setUpService();
    setenv("GST_REGISTRY_DISABLE", "yes", 1);
    gst_init(nullptr, nullptr);
    bench::require(gst_plugin_load_file(PLUGIN_FILE, nullptr) != nullptr, "loading the plugin");
    gst_element_register(nullptr, "copyfilter", GST_RANK_NONE, copy_filter_get_type());
    bench::Affinity affinity(bench::Place::kOneCore);
    return bench::run(argc, argv);
}
