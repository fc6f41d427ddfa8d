// SPDX-License-Identifier: Apache-2.0
// The adapter of the processing library: its texts, its records, and the order of its calls.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstring>
#include <future>
#include <list>

#include "aisr/AisrAlgorithm.h"
#include "support/LogCapture.h"
#include "support/ProcessingLibrary.h"
#include "support/ThreadState.h"

using processing::Call;
using processing::Frame;
using processing::Gate;
using Texts = std::vector<std::string>;

namespace {

class AlgorithmTest : public testing::Test {
protected:
    AlgorithmTest() {
        processing::use("without_nothing");
        property_set("persist.sys.tivora.debug.on", "false");
    }
    ~AlgorithmTest() override { processing::setHook(nullptr); }

    LogCapture log;
    Frame frame;
    AisrAlgorithm algorithm;
};

TEST_F(AlgorithmTest, DescribesFramesStatusesAndTags) {
    const auto pointer = [](uintptr_t address) { return reinterpret_cast<void*>(address); };
    const Aisr::BufferInfo usual = {0x7b3f, pointer(0xa00), pointer(0xc00), 640, 360, 704, 3};
    EXPECT_EQ(AisrAlgorithm::rectToString(usual), "640(704)x360");
    EXPECT_EQ(AisrAlgorithm::toString(usual),
              "data:{ id=7b3f idx=3 y=0xa00 uv=0xc00 640(704)x360 }");
    EXPECT_EQ(AisrAlgorithm::toStringSafe(usual), "data:{ id=7b3f idx=3 640(704)x360 }");
    const Aisr::BufferInfo extreme = {UINT64_MAX, pointer(UINTPTR_MAX), nullptr, -5, INT_MIN, 0,
                                      UINT64_MAX};
    EXPECT_EQ(AisrAlgorithm::toString(extreme),
              "data:{ id=ffffffffffffffff idx=18446744073709551615 y=0xffffffffffffffff uv=0x0 "
              "-5(0)x-2147483648 }");
    EXPECT_EQ(AisrAlgorithm::toString(0UL), "0");

    // The other statuses and tags are in the messages of the library's faults.
    EXPECT_EQ(algorithm.errToString(0), "AISR_SUCCESS(0)");
    const struct {
        int value;
        std::string name;
    } tags[] = {{0, "AISR_TAG_NEW_MEM(0)"},
                {1, "AISR_TAG_DEL_MEM(1)"},
                {3, "AISR_TAG_SET_TIMEOUT(3)"},
                {5, "AISR_TAG_NUM(5)"},
                {INT_MIN, "Unknown tag code: -2147483648"}};
    for (const auto& tag : tags) {
        EXPECT_EQ(algorithm.getTagName(tag.value), tag.name);
    }
}

TEST_F(AlgorithmTest, SubmitsAFrameAsAListOfOneNode) {
    Aisr::BufferInfo info = frame.info(0x7b3f);
    info.idx = 9;
    const AisrBuffer record = {0x7b3f, 9, 32, 16, 64, 0, info.y, info.uv};
    const auto isRecord = [&record](const void* bytes) {
        return std::memcmp(bytes, &record, sizeof(record)) == 0;
    };
    const void* submitted = nullptr;
    processing::setHook([&](const Call& call) {
        if (call.tag == AISR_TAG_SET_BUF) {
            EXPECT_EQ(call.data.size(), sizeof(AisrBufferList));
            submitted = call.address;
        } else if (call.entry == "AisrProcess") {
            // Walked only here: it has to last until the process call has returned.
            const auto* list = static_cast<const AisrBufferList*>(submitted);
            EXPECT_EQ(list->count, 1U);
            EXPECT_EQ(list->ends.next, list->ends.prev);
            const auto* node = reinterpret_cast<const AisrBufferNode*>(list->ends.next);
            EXPECT_EQ(node->links.next, &list->ends);
            EXPECT_EQ(node->links.prev, &list->ends);
            EXPECT_TRUE(isRecord(&node->buffer));
#ifdef _LIBCPP_VERSION
            // It is a list of the device's C++ runtime.
            const auto& frames = *static_cast<const std::list<AisrBuffer>*>(submitted);
            EXPECT_EQ(sizeof(frames), sizeof(AisrBufferList));
            EXPECT_EQ(std::distance(frames.begin(), frames.end()), 1);
            EXPECT_EQ(frames.size(), 1U);
            EXPECT_TRUE(isRecord(&frames.front()));
            EXPECT_TRUE(isRecord(&frames.back()));
#endif
        }
        return 0;
    });
    EXPECT_EQ(algorithm.enhance(info), 0);
    EXPECT_EQ(processing::calls().size(), 4U);

    algorithm.cancel(info);
    const Call cancel = processing::calls().back();
    EXPECT_EQ(cancel.text(), "AisrSetParam(3)");
    ASSERT_EQ(cancel.data.size(), sizeof(record));
    EXPECT_TRUE(isRecord(cancel.data.data())) << "the same record";
    EXPECT_EQ(log.lines().back(),
              "4 DE N AISRAlgo cancel:#: " + AisrAlgorithm::toString(info) + " -- success.");
}

TEST_F(AlgorithmTest, InitialisesOnFirstUseAndAgainAfterDeinit) {
    EXPECT_EQ(algorithm.deinit(), 0)
        << "nothing was initialised; the library is loaded all the same";
    EXPECT_TRUE(log.contains("4 DE N AISRAlgo loadLibrary:#: Load library successfully."));
    EXPECT_EQ(processing::takeTexts(), Texts{});

    Aisr::BufferInfo info = frame.info(1);
    algorithm.cancel(info);
    EXPECT_TRUE(log.contains("5 DE N AISRAlgo cancel:#: Oops! NOT ready!"));
    EXPECT_EQ(processing::takeTexts(), Texts{});

    EXPECT_EQ(algorithm.enhance(info), 0);
    EXPECT_EQ(algorithm.init(), 0);
    EXPECT_EQ(algorithm.enhance(info), 0);
    algorithm.cancel(info);
    EXPECT_EQ(algorithm.deinit(), 0);
    EXPECT_EQ(algorithm.doClean(), 0);
    ++info.idx;  // The sample remembers what was cancelled.
    property_set("persist.sys.tivora.debug.on", "true");
    EXPECT_EQ(algorithm.enhance(info), 0);
    EXPECT_TRUE(log.contains("init:#: setParam(AISR_TAG_SET_LOG_LEVEL,3) return 1"));
    EXPECT_EQ(processing::calls()[0].data, (std::vector<uint8_t>{1, 0, 0, 0}));
    EXPECT_EQ(processing::calls()[8].data, (std::vector<uint8_t>{3, 0, 0, 0}));
    EXPECT_EQ(processing::takeTexts(),
              (Texts{"AisrSetParam(4)", "AisrInit", "AisrSetParam(2)", "AisrProcess",
                     "AisrSetParam(2)", "AisrProcess", "AisrSetParam(3)", "AisrDeinit",
                     "AisrSetParam(4)", "AisrInit", "AisrSetParam(2)", "AisrProcess"}));
    EXPECT_EQ(log.count("Load library successfully."), 1U);
}

TEST_F(AlgorithmTest, KeepsDeinitAwayFromProcessingButNeverACancel) {
    Gate inProcess;
    Gate inDeinit;
    processing::setHook([&](const Call& call) {
        if (call.entry == "AisrProcess") {
            inProcess.pass();
        } else if (call.entry == "AisrDeinit") {
            inDeinit.pass();
        }
        return 0;
    });
    const Aisr::BufferInfo info = frame.info(1);
    auto enhanced = std::async(std::launch::async, [&] { return algorithm.enhance(info); });
    processing::waitFor("AisrProcess");
    // This one holds the mutex of init() and waits for the frame: the cancel must pass it by.
    std::future<int> ended = startAndWaitUntilAsleep([this] { return algorithm.deinit(); });
    algorithm.cancel(info);
    EXPECT_EQ(processing::calls().back().text(), "AisrSetParam(3)");
    inProcess.open();
    enhanced.get();
    processing::waitFor("AisrDeinit");
    auto cancelled = std::async(std::launch::async, [&] { algorithm.cancel(info); });
    EXPECT_EQ(cancelled.wait_for(std::chrono::seconds(kPatienceSeconds)),
              std::future_status::ready);
    inDeinit.open();
    EXPECT_EQ(ended.get(), 0);
    EXPECT_EQ(processing::calls().back().text(), "AisrDeinit");
    EXPECT_EQ(log.last("AISRAlgo cancel"), "5 DE N AISRAlgo cancel:#: Oops! NOT ready!");
}

TEST_F(AlgorithmTest, InitialisesAgainWhenADeinitCameBetween) {
    ASSERT_EQ(algorithm.init(), 0);
    processing::takeTexts();
    Gate inCancel;
    processing::hold("AisrSetParam(3)", &inCancel);
    auto cancelled = std::async(std::launch::async, [this] { algorithm.cancel(frame.info(9)); });
    processing::waitFor("AisrSetParam(3)");
    // The deinit waits for the cancel, and the frame, which has seen the flag still set, for it.
    std::future<int> ended = startAndWaitUntilAsleep([this] { return algorithm.deinit(); });
    std::future<int> enhanced =
        startAndWaitUntilAsleep([this] { return algorithm.enhance(frame.info(1)); });
    EXPECT_EQ(processing::count("AisrDeinit"), 0U);
    inCancel.open();
    cancelled.get();
    EXPECT_EQ(ended.get(), 0);
    EXPECT_EQ(enhanced.get(), 0);
    EXPECT_EQ(processing::takeTexts(), (Texts{"AisrSetParam(3)", "AisrDeinit", "AisrSetParam(4)",
                                              "AisrInit", "AisrSetParam(2)", "AisrProcess"}));
}

}  // namespace
