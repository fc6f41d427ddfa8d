// SPDX-License-Identifier: Apache-2.0
// The adapter of the processing library: its texts, its records, and the order of its calls.
#include <cutils/properties.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <future>

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

TEST_F(AlgorithmTest, DescribesFrames) {
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
}

TEST_F(AlgorithmTest, NamesStatusesAndTags) {
    const struct {
        int value;
        std::string status;
        std::string tag;
    } cases[] = {
        {0, "AISR_SUCCESS(0)", "AISR_TAG_NEW_MEM(0)"},
        {1, "AISR_ERR_FATAL(1)", "AISR_TAG_DEL_MEM(1)"},
        {2, "AISR_ERR_BUF_COPY(2)", "AISR_TAG_SET_BUF(2)"},
        {3, "AISR_ERR_TIMEOUT(3)", "AISR_TAG_SET_TIMEOUT(3)"},
        {4, "Unknown error code: 4", "Unknown tag code: 4"},
        {5, "Unknown error code: 5", "AISR_TAG_NUM(5)"},
        {INT_MIN, "Unknown error code: -2147483648", "Unknown tag code: -2147483648"},
    };
    for (const auto& expected : cases) {
        EXPECT_EQ(algorithm.errToString(expected.value), expected.status);
        EXPECT_EQ(algorithm.getTagName(expected.value), expected.tag);
    }
}

TEST_F(AlgorithmTest, SubmitsAFrameAsAListOfOneNode) {
    Aisr::BufferInfo info = frame.info(0x7b3f);
    info.idx = 9;
    std::vector<uint8_t> node;
    processing::setHook([&](const Call& call) {
        if (call.text() == "AisrSetParam(2)") {
            const void* first = nullptr;
            std::memcpy(&first, call.data.data() + 8, sizeof(first));
            node.assign(static_cast<const uint8_t*>(first),
                        static_cast<const uint8_t*>(first) + 64);
        }
        return 0;
    });
    ASSERT_EQ(algorithm.enhance(info), 0);

    const std::vector<Call> calls = processing::calls();
    ASSERT_EQ(calls.size(), 4U);
    const Call& submission = calls[2];
    ASSERT_EQ(submission.data.size(), 24U);
    ASSERT_EQ(node.size(), 64U);
    const auto word = [](const std::vector<uint8_t>& bytes, size_t offset) {
        uint64_t value = 0;
        std::memcpy(&value, bytes.data() + offset, sizeof(value));
        return value;
    };
    const auto header = reinterpret_cast<uintptr_t>(submission.address);
    EXPECT_EQ(word(submission.data, 0), word(submission.data, 8)) << "last and first node";
    EXPECT_EQ(word(submission.data, 16), 1U) << "number of nodes";
    EXPECT_EQ(word(node, 0), header) << "the node before the first";
    EXPECT_EQ(word(node, 8), header) << "the node after the last";
    EXPECT_EQ(word(node, 16), 0x7b3fU) << "id";
    EXPECT_EQ(word(node, 24), 9U) << "idx";
    EXPECT_EQ(word(node, 32), uint64_t{16} << 32 | 32) << "width, height";
    EXPECT_EQ(word(node, 40), 64U) << "stride, reserved";
    EXPECT_EQ(word(node, 48), reinterpret_cast<uintptr_t>(info.y)) << "luma plane";
    EXPECT_EQ(word(node, 56), reinterpret_cast<uintptr_t>(info.uv)) << "chroma plane";

    algorithm.cancel(info);
    const Call cancel = processing::calls().back();
    EXPECT_EQ(cancel.text(), "AisrSetParam(3)");
    EXPECT_EQ(cancel.data, std::vector<uint8_t>(node.begin() + 16, node.end()))
        << "the same record";
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
    EXPECT_EQ(algorithm.enhance(info), 0);
    EXPECT_EQ(processing::takeTexts(),
              (Texts{"AisrSetParam(4)", "AisrInit", "AisrSetParam(2)", "AisrProcess",
                     "AisrSetParam(2)", "AisrProcess", "AisrSetParam(3)", "AisrDeinit",
                     "AisrSetParam(4)", "AisrInit", "AisrSetParam(2)", "AisrProcess"}));
    EXPECT_EQ(log.count("Load library successfully."), 1U);
}

TEST_F(AlgorithmTest, SendsTheLogLevelTheProductAsksFor) {
    for (const uint8_t level : {uint8_t{1}, uint8_t{3}}) {
        property_set("persist.sys.tivora.debug.on", level == 3 ? "true" : "false");
        ASSERT_EQ(algorithm.init(), 0);
        EXPECT_EQ(processing::calls().front().data, (std::vector<uint8_t>{level, 0, 0, 0}));
        algorithm.deinit();
        processing::takeTexts();
    }
    EXPECT_TRUE(log.contains("init:#: setParam(AISR_TAG_SET_LOG_LEVEL,3) return 1"));
}

TEST_F(AlgorithmTest, KeepsDeinitAwayFromProcessingButNeverACancel) {
    Gate inProcess;
    processing::hold("AisrProcess", &inProcess);
    const Aisr::BufferInfo info = frame.info(1);
    auto enhanced = std::async(std::launch::async, [&] { return algorithm.enhance(info); });
    processing::waitFor("AisrProcess");
    // This one holds the mutex of init() and waits for the frame: the cancels must pass it by.
    std::future<int> ended = startAndWaitUntilAsleep([this] { return algorithm.deinit(); });
    algorithm.cancel(info);
    algorithm.cancel(info);
    EXPECT_EQ(processing::count("AisrSetParam(3)"), 2U);
    EXPECT_EQ(processing::count("AisrDeinit"), 0U);
    inProcess.open();
    enhanced.get();
    EXPECT_EQ(ended.get(), 0);
    EXPECT_EQ(processing::calls().back().text(), "AisrDeinit");
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
