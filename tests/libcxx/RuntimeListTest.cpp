// The frames that the client library submits are a list of the device's C++ runtime.
#include <gtest/gtest.h>

#include "aisr/AisrAlgorithm.h"
#include "libcxx/SubmittedFrames.h"
#include "support/ProcessingLibrary.h"

namespace {

std::vector<runtime_list::Submission> submissions;

}  // namespace

void runtimeListProcessed(const runtime_list::Submission& submission) {
    submissions.push_back(submission);
}

namespace {

TEST(RuntimeList, CarriesTheFrameToTheProcessingLibrary) {
    processing::use("runtime_list");
    AisrAlgorithm algorithm;
    processing::Frame frame;
    for (uint64_t idx = 9; idx < 12; ++idx) {
        Aisr::BufferInfo info = frame.info(0x7b3f);
        info.idx = idx;
        submissions.clear();
        ASSERT_EQ(algorithm.enhance(info), 0);

        ASSERT_EQ(submissions.size(), 1U);
        const std::vector<runtime_list::Frame> expected{
            {info.id, idx, info.width, info.height, info.stride, 0, info.y, info.uv}};
        EXPECT_EQ(submissions[0].dataSize, sizeof(runtime_list::Frames));
        EXPECT_EQ(submissions[0].count, 1U);
        EXPECT_TRUE(submissions[0].forwards == expected);
        EXPECT_TRUE(submissions[0].backwards == expected);
    }
}

}  // namespace
