// SPDX-License-Identifier: Apache-2.0
// The element displayenhance between two pads: what it pushes for each outcome, and what it tells.
#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <future>
#include <mutex>

#include "ElementRun.h"
#include "demo/processing/LumaSharpener.h"
#include "support/ControlledClock.h"
#include "support/EngineService.h"
#include "support/FaultInjection.h"
#include "support/ProcessingLibrary.h"
#include "support/Recording.h"

namespace {

using Strings = std::vector<std::string>;
using processing::Call;
using processing::Gate;

constexpr Layout kUsual{96, 64, 96, 96, 0};
constexpr Layout kOdd{53, 37, 56, 56, 0};
constexpr Layout kApart{41, 79, 64, 80, 112};
constexpr Layout kSmall{32, 16, 32, 32, 0};

class ElementTest : public testing::Test {
protected:
    ElementTest() : service(EngineService::install()) {
        processing::use("without_nothing");
        service->config.minWidth = service->config.minHeight = 24;
        service->config.monitorMaxFps = 1'000'000;
        service->config.abortMs = EngineService::kPatientMs;
        service->config.overloadMs = EngineService::kPatientMs;
        setHook([] { return 0; });
    }
    ~ElementTest() override { processing::setHook(nullptr); }

    /** Does `work` in place of the library's, or before it when the result is 0. */
    void setHook(const std::function<int32_t()>& work) {
        processing::setHook([this, work](const Call& call) {
            if (call.tag == AISR_TAG_SET_BUF && call.entry == "AisrSetParam") {
                const auto* list = static_cast<const AisrBufferList*>(call.address);
                const std::lock_guard<std::mutex> lock(mutex);
                frame = reinterpret_cast<const AisrBufferNode*>(list->ends.next)->buffer;
            }
            return call.entry == "AisrProcess" ? work() : 0;
        });
    }
    AisrBuffer submitted() {
        const std::lock_guard<std::mutex> lock(mutex);
        return frame;
    }

    android::sp<EngineService> service;
    std::mutex mutex;
    AisrBuffer frame{}; /**< The one that the library was given last. */
};

TEST_F(ElementTest, AProcessedFrameIsACopyWithTheSamePixelsButTheEnhancedOnes) {
    ElementRun run;
    for (const Layout& layout : {kUsual, kOdd, kApart, Layout{64, 96, 80, 80, 64}}) {
        run.setFormat(layout);
        GstBuffer* const input = gst_buffer_ref(run.makeFrame());
        GST_BUFFER_FLAG_SET(input, GST_BUFFER_FLAG_MARKER);
        std::vector<uint8_t> expected = pixels(input, layout);
        const std::vector<uint8_t> before = expected;
        GstBuffer* const output = run.push(input);
        ASSERT_EQ(run.outcomeOf(output), "processed") << layout.width;
        LumaSharpener().sharpen(expected.data(), layout.width, layout.height, layout.width,
                                [](int) { return true; });
        EXPECT_EQ(pixels(output, layout), expected) << layout.width;
        EXPECT_EQ(pixels(input, layout), before) << layout.width;
        EXPECT_NE(expected, before);
        EXPECT_EQ(GST_BUFFER_PTS(output), GST_BUFFER_PTS(input));
        EXPECT_TRUE(GST_BUFFER_FLAG_IS_SET(output, GST_BUFFER_FLAG_MARKER));
        EXPECT_EQ(submitted().width, layout.width);
        EXPECT_EQ(submitted().height, layout.height);
        gst_buffer_unref(input);
        gst_buffer_unref(output);
    }
    EXPECT_EQ(run.count("enhanced"), 4U);
    EXPECT_EQ(run.count("held"), 0U);
}

TEST_F(ElementTest, AnExpiredFrameGoesOnUntouchedWhileTheLibraryWritesItsCopy) {
    service->config.abortMs = service->config.overloadMs = 2;
    for (const bool isGone : {false, true}) {
        Gate gate;
        std::promise<void> written;
        setHook([&] {
            const AisrBuffer at = submitted();
            gate.pass();
            std::memset(at.y, 0xee, static_cast<size_t>(at.stride * at.height));
            std::memset(at.uv, 0xee, static_cast<size_t>(at.stride * ((at.height + 1) / 2)));
            written.set_value();
            return AISR_ERR_TIMEOUT;
        });
        auto run = std::make_unique<ElementRun>();
        run->setFormat(kOdd);
        run->messages();
        GstBuffer* const input = run->makeFrame();
        const std::vector<uint8_t> before = pixels(input, kOdd);
        GstBuffer* const output = run->push(input);
        EXPECT_EQ(run->outcomeOf(output), "expired");
        EXPECT_EQ(output, input) << "nobody else held it";
        EXPECT_EQ(run->messages(), (Strings{"element ", "qos"}));
        EXPECT_EQ(run->count("held"), 1U);
        std::future<void> closed;
        if (isGone) {
            // Its end waits for the library.
            closed = startAndWaitUntilAsleep([&run] { run.reset(); });
        }
        gate.open();
        written.get_future().wait();
        EXPECT_EQ(pixels(output, kOdd), before);
        if (run != nullptr && !isGone) {
            waitUntil("the copy to be handed back", [&] { return run->count("held") == 0; });
        }
        gst_buffer_unref(output);
    }
}

TEST_F(ElementTest, AFailedFrameGoesOnUntouched) {
    ElementRun run;
    run.setFormat(kUsual);
    setHook([this] {
        *static_cast<uint8_t*>(submitted().y) = 1;
        return AISR_ERR_FATAL;
    });
    GstBuffer* const input = run.makeFrame();
    const std::vector<uint8_t> before = pixels(input, kUsual);
    GstBuffer* const output = run.push(input);
    EXPECT_EQ(run.outcomeOf(output), "failed");
    EXPECT_EQ(pixels(output, kUsual), before);
    gst_buffer_unref(output);
    GstBuffer* const tooSmall = gst_buffer_new_allocate(nullptr, 1000, nullptr);
    GstBuffer* const passed = run.push(tooSmall);
    EXPECT_EQ(passed, tooSmall);
    EXPECT_EQ(run.outcomeOf(passed), "not-offered unreadable");
    gst_buffer_unref(passed);
}

TEST_F(ElementTest, AFrameThatIsNotWantedPassesAsItIsAndSaysWhy) {
    ElementRun run;
    EXPECT_EQ(run.inactiveReason(), "no-stream");
    run.setFormat(kUsual);
    EXPECT_EQ(run.outcome(), "processed");
    const auto tellEnabled = [this](bool isEnabled) {
        android::os::PersistableBundle data;
        data.putBoolean(android::String16("Enable"), isEnabled);
        EXPECT_TRUE(service->callback()->onEventWithData(3, data).isOk());
    };
    const struct {
        const char* reason;
        std::function<void(bool)> make;
    } cases[] = {
        {"size", [&](bool isSo) { run.setFormat(isSo ? kSmall : kUsual); }},
        {"rate", [&](bool isSo) { run.setFormat(kUsual, isSo ? "50/1" : "30/1"); }},
        {"switched-off", [&](bool isSo) { tellEnabled(!isSo); }},
        {"disabled", [&](bool isSo) { g_object_set(run.element(), "enable", !isSo, nullptr); }},
    };
    run.messages();
    for (const auto& c : cases) {
        c.make(true);
        GstBuffer* const input = run.makeFrame();
        GstBuffer* const output = run.push(input);
        EXPECT_EQ(output, input) << c.reason;
        EXPECT_EQ(run.outcomeOf(output), std::string("not-offered ") + c.reason);
        // Another holder of the buffer sees no mark, and the memory is the same.
        gst_buffer_ref(output);
        GstBuffer* const marked = run.push(gst_buffer_ref(output));
        EXPECT_EQ(gst_buffer_peek_memory(marked, 0), gst_buffer_peek_memory(output, 0)) << c.reason;
        gst_buffer_unref(marked);
        gst_buffer_unref(output);
        gst_buffer_unref(output);
        EXPECT_EQ(run.inactiveReason(), c.reason);
        c.make(false);
        EXPECT_EQ(run.outcome(), "processed") << c.reason;
        Strings told = run.messages();
        told.erase(std::remove(told.begin(), told.end(), "latency"), told.end());
        EXPECT_EQ(told, (Strings{std::string("element ") + c.reason, "element "}));
    }
    EXPECT_EQ(run.count("not-wanted"), 8U);
    EXPECT_EQ(run.count("offered"), 5U);
}

TEST_F(ElementTest, AVariableRateIsMeasured) {
    ElementRun run;
    run.setFormat(kUsual, "0/1");
    const auto outcomeOfLast = [&run](int frames) {
        std::string last;
        for (int i = 0; i < frames; ++i) {
            last = run.outcome();
        }
        return last;
    };
    EXPECT_EQ(outcomeOfLast(9), "not-offered rate") << "not known yet";
    EXPECT_EQ(outcomeOfLast(1), "processed");
    run.setGap(20 * GST_MSECOND);
    EXPECT_EQ(outcomeOfLast(32), "not-offered rate");
    run.setGap(100 * GST_MSECOND);
    EXPECT_EQ(outcomeOfLast(32), "processed");
}

TEST_F(ElementTest, AStreamHasAnIdOfItsOwn) {
    ElementRun run;
    run.setFormat(kUsual);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    const std::function<void()> begins[] = {
        [&] { run.setFormat(kOdd); },
        [&] { gst_harness_push_event(run.harness(), gst_event_new_stream_start("another")); },
        [&] { gst_harness_push_event(run.harness(), gst_event_new_segment(&segment)); },
        [&] {
            gst_harness_push_event(run.harness(), gst_event_new_flush_start());
            gst_harness_push_event(run.harness(), gst_event_new_flush_stop(TRUE));
            gst_harness_push_event(run.harness(), gst_event_new_segment(&segment));
        },
    };
    run.outcome();
    for (const auto& begin : begins) {
        const uint64_t before = submitted().id;
        run.outcome();
        EXPECT_EQ(submitted().id, before);
        begin();
        EXPECT_EQ(run.outcome(), "processed");
        EXPECT_NE(submitted().id, before);
    }
}

TEST_F(ElementTest, ASecondElementPassesAndTakesOver) {
    ElementRun second;
    {
        ElementRun first;
        first.setFormat(kUsual);
        EXPECT_EQ(first.outcome(), "processed");
        second.setFormat(kUsual);
        EXPECT_EQ(second.outcome(), "not-offered session-taken");
        EXPECT_EQ(second.inactiveReason(), "session-taken");
        EXPECT_EQ(first.outcome(), "processed");
    }
    second.setFormat(kOdd);
    EXPECT_EQ(second.outcome(), "processed");
}

TEST_F(ElementTest, TellsTheLimitsAndTheLatency) {
    service->config.abortMs = 77;
    service->config.overloadMs = 55;
    ElementRun run;
    const auto latency = [&run] { return gst_harness_query_latency(run.harness()); };
    EXPECT_EQ(latency(), 0U);
    run.setFormat(kUsual);
    EXPECT_EQ(run.messages(), Strings{"latency"});
    EXPECT_EQ(latency(), 77 * GST_MSECOND);
    GstStructure* limits = nullptr;
    g_object_get(run.element(), "limits", &limits, nullptr);
    gchar* const text = gst_structure_to_string(limits);
    EXPECT_STREQ(text,
                 "displayenhance-limits, min-width=(int)24, min-height=(int)24, "
                 "max-width=(int)720, max-height=(int)1280, max-fps=(int)30, "
                 "monitor-fps=(int)1000000, overload-ms=(int)55, abort-ms=(int)77;");
    g_free(text);
    gst_structure_free(limits);
    g_object_set(run.element(), "enable", FALSE, nullptr);
    run.outcome();
    EXPECT_EQ(latency(), 0U);
}

/** What is said once in a stream, and again in the next. */
struct Complaint {
    const char* name;
    const char* outcome;
    const char* message;
    void (*cause)(EngineService* service);
};

void PrintTo(const Complaint& complaint, std::ostream* text) {
    *text << complaint.name;
}

class ElementComplaintTest : public ElementTest, public testing::WithParamInterface<Complaint> {};

TEST_P(ElementComplaintTest, IsMadeOnceInAStream) {
    GetParam().cause(service.get());
    ElementRun run;
    run.setFormat(kUsual);
    const auto complaints = [&run](int frames) {
        for (int i = 0; i < frames; ++i) {
            run.outcome();
        }
        const Strings told = run.messages();
        return std::count(told.begin(), told.end(), GetParam().message);
    };
    EXPECT_EQ(complaints(40), 1);
    EXPECT_EQ(run.outcome(), GetParam().outcome);
    EXPECT_EQ(complaints(3), 0);
    gst_harness_push_event(run.harness(), gst_event_new_stream_start("another"));
    EXPECT_EQ(complaints(40), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Each, ElementComplaintTest,
    testing::Values(Complaint{"NoLibrary", "refused-not-ready", "warning",
                              [](EngineService*) { processing::use(""); }},
                    Complaint{"InvalidConfiguration", "not-offered not-started", "warning",
                              [](EngineService* service) { service->config.size = 3; }},
                    // The clock stands still.
                    Complaint{"TooFast", "refused-unhealthy", "info",
                              [](EngineService* service) {
                                  service->config.monitorMaxFps = 31;
                                  service->config.monitorTolerance = 0;
                              }},
                    Complaint{"Overload", "refused-overload", "info",
                              [](EngineService* service) {
                                  service->config.toleranceCount = 3;
                                  service->config.overloadMs = 50;
                                  processing::setHook([service](const Call& call) {
                                      if (call.entry == "AisrProcess") {
                                          controlled_clock::advance(std::chrono::milliseconds(
                                              service->config.overloadMs));
                                      }
                                      return 0;
                                  });
                              }}),
    [](const auto& complaint) { return complaint.param.name; });

TEST_F(ElementTest, StartsAndStopsWithoutGrowth) {
    const auto cycles = [this](int count) {
        for (int i = 0; i < count; ++i) {
            ElementRun run;
            run.setFormat(i % 2 == 0 ? kUsual : kOdd);
            EXPECT_EQ(run.outcome(), "processed") << i;
            gst_element_set_state(run.element(), GST_STATE_NULL);
            EXPECT_EQ(run.inactiveReason(), "no-stream");
            gst_harness_play(run.harness());
            EXPECT_EQ(run.count("offered"), 0U);
            gst_harness_push_event(run.harness(), gst_event_new_stream_start("again"));
            run.setFormat(kApart);
            EXPECT_EQ(run.outcome(), "processed") << i;
            processing::takeTexts();
            service->journal.take();
        }
        const struct mallinfo2 memory = mallinfo2();
        return memory.uordblks + memory.hblkhd;
    };
    const size_t before = cycles(10);
    const std::string held = fault::holdings();
    EXPECT_LT(cycles(100), before + kUsual.size());
    fault::expectReturnTo(held);
}

}  // namespace
