// SPDX-License-Identifier: Apache-2.0
// The sample processing library: the order of its entries and its cancel.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <future>
#include <vector>

#include "common/AisrProcess.h"

extern "C" {
int32_t AisrInit(void** context);
int32_t AisrDeinit(void** context);
int32_t AisrProcess(void** context);
int32_t AisrSetParam(void** context, int32_t tag, const void* data, uint64_t size);
}

namespace {

class SampleProcessingTest : public testing::Test {
protected:
    static std::vector<uint8_t> bars() {
        std::vector<uint8_t> picture(64 * 48);
        for (size_t i = 0; i < picture.size(); ++i) {
            picture[i] = i / 8 % 2 == 0 ? 60 : 110;
        }
        return picture;
    }
    int32_t submit() { return AisrSetParam(&mContext, AISR_TAG_SET_BUF, &mList, sizeof(mList)); }
    int32_t cancel(uint64_t id, uint64_t idx) {
        const AisrBuffer frame = {id, idx, 61, 48, 64, 0, nullptr, nullptr};
        return AisrSetParam(&mContext, AISR_TAG_SET_TIMEOUT, &frame, sizeof(frame));
    }

    std::vector<uint8_t> mPicture = bars();
    AisrBufferList mList = {{&mNode.links, &mNode.links}, 1};
    AisrBufferNode mNode = {{&mList.ends, &mList.ends},
                            {1, 7, 61, 48, 64, 0, mPicture.data(), mPicture.data()}};
    void* mContext = nullptr;
};

TEST_F(SampleProcessingTest, KeepsTheOrderOfItsEntries) {
    EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(AisrDeinit(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(submit(), AISR_ERR_FATAL);
    EXPECT_EQ(AisrInit(&mContext), AISR_SUCCESS);
    EXPECT_EQ(AisrInit(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_BUF_COPY) << "nothing was submitted";
    EXPECT_EQ(submit(), AISR_SUCCESS);
    EXPECT_EQ(AisrProcess(&mContext), AISR_SUCCESS);
    EXPECT_NE(mPicture, bars());
    EXPECT_EQ(mPicture[63], bars()[63]) << "beyond the width";
    EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_BUF_COPY) << "a frame is processed once";
    mNode.buffer.stride = 60;
    EXPECT_EQ(submit(), AISR_ERR_BUF_COPY) << "rows overlap";
    EXPECT_EQ(AisrDeinit(&mContext), AISR_SUCCESS);
    EXPECT_EQ(mContext, nullptr);
}

TEST_F(SampleProcessingTest, CancelStopsTheNamedFrameOnly) {
    ASSERT_EQ(AisrInit(&mContext), AISR_SUCCESS);
    const struct {
        uint64_t id, idx;
        int32_t status;
    } cancels[] = {{1, 7, AISR_ERR_TIMEOUT}, {1, 4, AISR_SUCCESS}, {2, 7, AISR_SUCCESS}};
    for (const auto& c : cancels) {
        EXPECT_EQ(cancel(c.id, c.idx), AISR_SUCCESS);
        EXPECT_EQ(submit(), AISR_SUCCESS);
        EXPECT_EQ(AisrProcess(&mContext), c.status);
        EXPECT_EQ(submit(), AISR_SUCCESS);
        EXPECT_EQ(AisrProcess(&mContext), AISR_SUCCESS) << "a cancel counts once";
    }
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
    const int savedError = dup(STDERR_FILENO);
    ASSERT_EQ(pipe(log), 0);
    dup2(log[1], STDERR_FILENO);
    auto status = std::async(std::launch::async, [&] { return AisrProcess(&mContext); });
    char line[64] = {};
    EXPECT_GT(read(log[0], line, sizeof(line) - 1), 0);
    EXPECT_STREQ(line, "aisr sample: frame begun\n");
    EXPECT_EQ(cancel(1, 7), AISR_SUCCESS);
    EXPECT_EQ(status.get(), AISR_ERR_TIMEOUT);
    dup2(savedError, STDERR_FILENO);
    EXPECT_EQ(AisrDeinit(&mContext), AISR_SUCCESS);
}

}  // namespace
