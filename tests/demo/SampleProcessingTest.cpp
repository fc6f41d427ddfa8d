// SPDX-License-Identifier: Apache-2.0
// The sample processing library: the order of its entries and its cancel. But for the slow frame,
// the template for makers is held to the same.
#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>
#include <vector>

#include "common/AisrProcess.h"
#include "support/ThreadState.h"

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
    const int32_t level = 1;
    EXPECT_EQ(AisrSetParam(&mContext, AISR_TAG_SET_LOG_LEVEL, &level, sizeof(level)), AISR_SUCCESS);
    EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(submit(), AISR_ERR_FATAL);
    EXPECT_EQ(cancel(1, 7), AISR_ERR_FATAL);
    EXPECT_EQ(AisrInit(&mContext), AISR_SUCCESS);
    EXPECT_EQ(AisrInit(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_BUF_COPY) << "nothing was submitted";
    EXPECT_EQ(AisrSetParam(&mContext, AISR_TAG_NUM, &mList, sizeof(mList)), AISR_ERR_FATAL);
    EXPECT_EQ(AisrSetParam(&mContext, AISR_TAG_SET_BUF, &mList, 32), AISR_ERR_FATAL);
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

// The slowed frame would take an hour; only the cancel ends it.
TEST_F(SampleProcessingTest, CancelEndsASlowFrame) {
    setenv("AISR_SAMPLE_SLOW_MS", "3600000", 1);
    ASSERT_EQ(AisrInit(&mContext), AISR_SUCCESS);
    ASSERT_EQ(submit(), AISR_SUCCESS);
    auto status = startAndWaitUntilAsleep([&] { return AisrProcess(&mContext); });
    EXPECT_EQ(cancel(1, 7), AISR_SUCCESS);
    EXPECT_EQ(status.get(), AISR_ERR_TIMEOUT);
    EXPECT_EQ(AisrDeinit(&mContext), AISR_SUCCESS);
}

}  // namespace
