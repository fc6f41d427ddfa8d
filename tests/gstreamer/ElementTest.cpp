// SPDX-License-Identifier: Apache-2.0
// The element displayenhance between two pads: what it pushes for each outcome, and what it tells.
#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <future>

#include "ElementRun.h"
#include "demo/processing/LumaSharpener.h"
#include "support/ControlledClock.h"
#include "support/EngineService.h"
#include "support/FaultInjection.h"
#include "support/ProcessingLibrary.h"

namespace {

using Strings = std::vector<std::string>;
using processing::Call;

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
        service->config.abortMs = service->config.overloadMs = EngineService::kPatientMs;
        setHook([] { return 0; });
    }
    ~ElementTest() override { processing::setHook(nullptr); }

    /** Does `work` in place of the library's, or before it when the result is 0. */
    void setHook(const std::function<int32_t()>& work) {
        processing::setHook([this, work](const Call& call) {
            if (call.text() == "AisrSetParam(2)") {
                const auto* list = static_cast<const AisrBufferList*>(call.address);
                submitted = reinterpret_cast<const AisrBufferNode*>(list->ends.next)->buffer;
            }
            return call.entry == "AisrProcess" ? work() : 0;
        });
    }

    /** Expects one such message in each stream whose frames come to `outcome`. */
    void expectOneInAStream(const char* message, const char* outcome) {
        ElementRun run;
        for (const char* stream : {"one", "another"}) {
            run.send(gst_event_new_stream_start(stream));
            run.setFormat(kUsual);
            EXPECT_EQ(run.outcome(40), outcome);
            const Strings told = run.messages();
            EXPECT_EQ(std::count(told.begin(), told.end(), message), 1) << stream;
        }
    }

    android::sp<EngineService> service;
    AisrBuffer submitted{}; /**< The frame that the library was given last. */
};

TEST_F(ElementTest, AProcessedFrameIsACopyWithTheSamePixelsButTheEnhancedOnes) {
    ElementRun run;
    for (const Layout& layout : {kUsual, kOdd, kApart, Layout{64, 96, 80, 80, 64}}) {
        run.setFormat(layout);
        const BufferPtr input(run.makeFrame());
        GST_BUFFER_FLAG_SET(input.get(), GST_BUFFER_FLAG_MARKER);
        const std::vector<uint8_t> before = pixels(input, layout);
        std::vector<uint8_t> expected = before;
        LumaSharpener().sharpen(expected.data(), layout.width, layout.height, layout.width,
                                [](int) { return true; });
        const BufferPtr output = run.push(gst_buffer_ref(input.get()));
        ASSERT_EQ(run.outcome(output), "processed") << layout.width;
        EXPECT_EQ(pixels(output, layout), expected) << layout.width;
        EXPECT_EQ(pixels(input, layout), before) << layout.width;
        EXPECT_EQ(GST_BUFFER_PTS(output.get()), GST_BUFFER_PTS(input.get()));
        EXPECT_TRUE(GST_BUFFER_FLAG_IS_SET(output.get(), GST_BUFFER_FLAG_MARKER));
    }
    EXPECT_TRUE(run.hasCounted("enhanced", 4) && run.hasCounted("held", 0));
}

TEST_F(ElementTest, AnExpiredFrameGoesOnUntouchedWhileTheLibraryWritesItsCopy) {
    service->config.abortMs = service->config.overloadMs = 2;
    for (const bool isGone : {false, true}) {
        processing::Gate gate;
        std::promise<void> written;
        setHook([&] {
            const AisrBuffer at = submitted;
            gate.pass();
            std::memset(at.y, 0xee, static_cast<size_t>(at.stride * at.height));
            std::memset(at.uv, 0xee, static_cast<size_t>(at.stride * ((at.height + 1) / 2)));
            written.set_value();
            return AISR_ERR_TIMEOUT;
        });
        auto run = std::make_unique<ElementRun>();
        run->setFormat(kOdd);
        run->messages();
        BufferPtr input(run->makeFrame());
        const GstBuffer* const address = input.get();
        const std::vector<uint8_t> before = pixels(input, kOdd);
        const BufferPtr output = run->push(input.release());
        EXPECT_EQ(run->outcome(output), "expired");
        EXPECT_EQ(output.get(), address) << "nobody else held it";
        EXPECT_EQ(run->messages(), (Strings{"element ", "qos"}));
        EXPECT_TRUE(run->hasCounted("held", 1));
        processing::waitFor("AisrProcess", isGone ? 2 : 1);
        std::future<void> closed;
        if (isGone) {  // The end of the element waits for the library.
            closed = startAndWaitUntilAsleep([&run] { run.reset(); });
        }
        gate.open();
        written.get_future().wait();
        EXPECT_EQ(pixels(output, kOdd), before);
        if (!isGone) {
            waitUntil("the copy to be handed back", [&] { return run->hasCounted("held", 0); });
        }
    }
}

TEST_F(ElementTest, AFailedFrameGoesOnUntouchedAndAnUnreadableOneIsNotOffered) {
    ElementRun run;
    run.setFormat(kUsual);
    setHook([this] {
        *static_cast<uint8_t*>(submitted.y) = 1;
        return AISR_ERR_FATAL;
    });
    BufferPtr input(run.makeFrame());
    const std::vector<uint8_t> before = pixels(input, kUsual);
    const BufferPtr output = run.push(input.release());
    EXPECT_EQ(run.outcome(output), "failed");
    EXPECT_EQ(pixels(output, kUsual), before);
    GstBuffer* const tooSmall = gst_buffer_new_allocate(nullptr, 1000, nullptr);
    EXPECT_EQ(run.outcome(run.push(tooSmall)), "not-offered unreadable");
}

TEST_F(ElementTest, AFrameThatIsNotWantedPassesAsItIsAndSaysWhy) {
    ElementRun run;
    EXPECT_EQ(run.property("inactive-reason"), "\"no-stream\"");
    run.setFormat(kUsual);
    EXPECT_EQ(run.outcome(), "processed");
    const struct {
        const char* reason;
        std::function<void(bool)> make;
    } cases[] = {
        {"size", [&](bool isSo) { run.setFormat(isSo ? kSmall : kUsual); }},
        {"rate", [&](bool isSo) { run.setFormat(kUsual, isSo ? "50/1" : "30/1"); }},
        {"switched-off",
         [this](bool isSo) {
             android::os::PersistableBundle data;
             data.putBoolean(android::String16("Enable"), !isSo);
             EXPECT_TRUE(service->callback()->onEventWithData(3, data).isOk());
         }},
        {"disabled",
         [&](bool isSo) { g_object_set(run.harness->element, "enable", !isSo, nullptr); }},
    };
    for (const auto& c : cases) {
        run.messages();
        c.make(true);
        GstBuffer* const input = run.makeFrame();
        const BufferPtr output = run.push(input);
        EXPECT_EQ(output.get(), input) << c.reason;
        EXPECT_EQ(run.outcome(output), std::string("not-offered ") + c.reason);
        EXPECT_EQ(run.property("inactive-reason"), std::string("\"") + c.reason + "\"");
        EXPECT_EQ(run.property("active"), "FALSE");
        // A buffer that others hold too is not marked itself, and its memory not copied.
        const BufferPtr marked = run.push(gst_buffer_ref(input));
        EXPECT_NE(marked, output);
        EXPECT_EQ(gst_buffer_peek_memory(marked.get(), 0), gst_buffer_peek_memory(input, 0));
        c.make(false);
        EXPECT_EQ(run.outcome(), "processed") << c.reason;
        Strings told = run.messages();
        told.erase(std::remove(told.begin(), told.end(), "latency"), told.end());
        EXPECT_EQ(told, (Strings{std::string("element ") + c.reason, "element "}));
    }
    EXPECT_EQ(run.property("active"), "TRUE");
    EXPECT_TRUE(run.hasCounted("not-wanted", 8) && run.hasCounted("offered", 5));
}

TEST_F(ElementTest, AVariableRateIsMeasured) {
    ElementRun run;
    run.setFormat(kUsual, "0/1");
    EXPECT_EQ(run.outcome(9), "not-offered rate") << "not known yet";
    EXPECT_EQ(run.outcome(), "processed");
    run.gap = 20 * GST_MSECOND;
    EXPECT_EQ(run.outcome(32), "not-offered rate");
    run.gap = 100 * GST_MSECOND;
    EXPECT_EQ(run.outcome(32), "processed");
}

TEST_F(ElementTest, AStreamHasAnIdOfItsOwn) {
    ElementRun run;
    run.setFormat(kUsual);
    GstSegment segment;
    gst_segment_init(&segment, GST_FORMAT_TIME);
    const std::function<void()> begins[] = {
        [&] { run.setFormat(kOdd); },
        [&] { run.send(gst_event_new_stream_start("another")); },
        [&] { run.send(gst_event_new_segment(&segment)); },
        [&] { run.send(gst_event_new_flush_stop(FALSE)); },
    };
    run.outcome();
    for (const auto& begin : begins) {
        const uint64_t before = submitted.id;
        run.outcome();
        EXPECT_EQ(submitted.id, before);
        begin();
        EXPECT_EQ(run.outcome(), "processed");
        EXPECT_NE(submitted.id, before);
    }
}

TEST_F(ElementTest, ASecondElementPassesAndTakesOver) {
    auto first = std::make_unique<ElementRun>();
    first->setFormat(kUsual);
    EXPECT_EQ(first->outcome(), "processed");
    ElementRun second;
    second.setFormat(kUsual);
    EXPECT_EQ(second.outcome(), "not-offered session-taken");
    EXPECT_EQ(first->outcome(), "processed");
    first.reset();
    second.setFormat(kOdd);
    EXPECT_EQ(second.outcome(), "processed");
}

TEST_F(ElementTest, TellsTheLimitsAndTheLatency) {
    service->config.abortMs = 77;
    service->config.overloadMs = 55;
    ElementRun run;
    const auto latency = [&run] { return gst_harness_query_latency(run.harness); };
    EXPECT_EQ(run.property("limits"), "NULL");
    EXPECT_EQ(latency(), 0U);
    run.setFormat(kUsual);
    EXPECT_EQ(run.messages(), Strings{"latency"});
    EXPECT_EQ(latency(), 77 * GST_MSECOND);
    EXPECT_EQ(run.property("limits"),
              "displayenhance-limits, min-width=(int)24, min-height=(int)24, max-width=(int)720, "
              "max-height=(int)1280, max-fps=(int)30, monitor-fps=(int)1000000, "
              "overload-ms=(int)55, abort-ms=(int)77;");
    g_object_set(run.harness->element, "enable", FALSE, nullptr);
    run.outcome();
    EXPECT_EQ(latency(), 0U);
}

TEST_F(ElementTest, WarnsOfAMissingLibrary) {
    processing::use("");
    expectOneInAStream("warning", "refused-not-ready");
}

TEST_F(ElementTest, WarnsOfAnInvalidConfiguration) {
    service->config.size = 3;
    expectOneInAStream("warning", "not-offered not-started");
}

TEST_F(ElementTest, TellsThatFramesComeTooFast) {
    service->config.monitorMaxFps = 31;  // The clock stands still.
    service->config.monitorTolerance = 0;
    expectOneInAStream("info", "refused-unhealthy");
}

TEST_F(ElementTest, TellsOfAnOverload) {
    service->config.overloadMs = 50;
    setHook([] {
        controlled_clock::advance(std::chrono::milliseconds(50));
        return 0;
    });
    expectOneInAStream("info", "refused-overload");
}

TEST_F(ElementTest, StartsAndStopsWithoutGrowth) {
    const auto cycles = [this](int count) {
        for (int i = 0; i < count; ++i) {
            ElementRun run;
            run.setFormat(i % 2 == 0 ? kUsual : kOdd);
            EXPECT_EQ(run.outcome(), "processed") << i;
            gst_element_set_state(run.harness->element, GST_STATE_NULL);
            EXPECT_EQ(run.property("inactive-reason"), "\"no-stream\"");
            gst_harness_play(run.harness);
            run.setFormat(kApart);
            EXPECT_TRUE(run.hasCounted("offered", 0));
            processing::takeTexts();
            service->journal.take();
        }
        const struct mallinfo2 memory = mallinfo2();
        return memory.uordblks + memory.hblkhd;
    };
    const size_t before = cycles(10);
    const std::string held = fault::holdings();
    EXPECT_LT(cycles(100), before + static_cast<size_t>(kUsual.size()));
    fault::expectReturnTo(held);
}

}  // namespace
