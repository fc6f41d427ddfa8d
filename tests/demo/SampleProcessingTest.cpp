// SPDX-License-Identifier: Apache-2.0
// The sample processing library: the order of its entries and its cancel.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <future>
#include <utility>
#include <vector>

#include "common/AisrProcess.h"

namespace {

class SampleProcessingTest : public testing::Test {
protected:
    int32_t submit() { return AisrSetParam(&mContext, AISR_TAG_SET_BUF, &mList, sizeof(mList)); }
    int32_t cancel(uint64_t id, uint64_t idx) {
        const AisrBuffer frame = {id, idx, 64, 48, 64, 0, nullptr, nullptr};
        return AisrSetParam(&mContext, AISR_TAG_SET_TIMEOUT, &frame, sizeof(frame));
    }

    std::vector<uint8_t> mPicture = std::vector<uint8_t>(64 * 48);
    AisrBufferList mList = {{&mNode.links, &mNode.links}, 1};
    AisrBufferNode mNode = {{&mList.ends, &mList.ends},
                            {1, 7, 64, 48, 64, 0, mPicture.data(), mPicture.data()}};
    void* mContext = nullptr;
};

TEST_F(SampleProcessingTest, KeepsTheOrderOfItsEntriesAndCancelsTheNamedFrameOnly) {
    EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(submit(), AISR_ERR_FATAL);
    EXPECT_EQ(AisrInit(&mContext), AISR_SUCCESS);
    EXPECT_EQ(AisrInit(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_BUF_COPY) << "nothing was submitted";
    for (const auto& [id, idx] : {std::pair{1U, 7U}, {1U, 4U}, {2U, 7U}}) {
        EXPECT_EQ(cancel(id, idx), AISR_SUCCESS);
        EXPECT_EQ(submit(), AISR_SUCCESS);
        const bool isNamed = id == 1 && idx == 7;
        EXPECT_EQ(AisrProcess(&mContext), isNamed ? AISR_ERR_TIMEOUT : AISR_SUCCESS);
        EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_BUF_COPY) << "a frame is processed once";
        EXPECT_EQ(submit(), AISR_SUCCESS);
        EXPECT_EQ(AisrProcess(&mContext), AISR_SUCCESS) << "a cancel counts once";
    }
    mNode.buffer.stride = 63;
    EXPECT_EQ(submit(), AISR_ERR_BUF_COPY) << "rows overlap";
    EXPECT_EQ(AisrDeinit(&mContext), AISR_SUCCESS);
}

// The slowed frame would take an hour; only the cancel ends it. The library's log tells when it is
// at work.
TEST_F(SampleProcessingTest, CancelEndsASlowFrame) {
    setenv("AISR_SAMPLE_SLOW_MS", "3600000", 1);
    const int32_t level = 3;
    ASSERT_EQ(AisrSetParam(&mContext, AISR_TAG_SET_LOG_LEVEL, &level, 4), AISR_SUCCESS);
    ASSERT_EQ(AisrInit(&mContext), AISR_SUCCESS);
    ASSERT_EQ(submit(), AISR_SUCCESS);
    int log[2];
    ASSERT_EQ(pipe(log), 0);
    dup2(log[1], STDERR_FILENO);
    auto status = std::async(std::launch::async, [&] { return AisrProcess(&mContext); });
    char line[64] = {};
    EXPECT_GT(read(log[0], line, sizeof(line) - 1), 0);
    EXPECT_STREQ(line, "aisr sample: frame begun\n");
    EXPECT_EQ(cancel(1, 7), AISR_SUCCESS);
    EXPECT_EQ(status.get(), AISR_ERR_TIMEOUT);
    EXPECT_EQ(AisrDeinit(&mContext), AISR_SUCCESS);
}

}  // namespace
