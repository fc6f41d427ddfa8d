// SPDX-License-Identifier: Apache-2.0
// The sample processing library: its picture, its call order and its cancel.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <future>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "common/AisrProcess.h"
#include "demo/processing/LumaSharpener.h"

extern "C" {
int32_t AisrInit(void** context);
int32_t AisrDeinit(void** context);
int32_t AisrProcess(void** context);
int32_t AisrDoClean(void** context);
int32_t AisrGetParam(void** context, int32_t tag, void* data, uint64_t size);
int32_t AisrSetParam(void** context, int32_t tag, const void* data, uint64_t size);
}

namespace {

using Plane = std::vector<uint8_t>;

constexpr int kWidth = 61;
constexpr int kHeight = 37;
constexpr int kStride = 64;
constexpr uint8_t kPadding = 0xa5;

Plane plane(const std::function<int(int x, int y)>& value) {
    Plane result(kStride * kHeight, kPadding);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            result[y * kStride + x] = static_cast<uint8_t>(value(x, y));
        }
    }
    return result;
}

Plane texture() {
    std::mt19937 random(7);
    return plane(
        [&](int x, int y) { return (x * 5 + y * 3 + static_cast<int>(random() % 90)) % 256; });
}

// In place, since a submission points to the pixels.
void restore(Plane& picture) {
    const Plane original = texture();
    std::copy(original.begin(), original.end(), picture.begin());
}

Plane sharpened(Plane picture, int width = kWidth, int height = kHeight, int stride = kStride) {
    const auto goOn = [](int) { return true; };
    EXPECT_TRUE(LumaSharpener().sharpen(picture.data(), width, height, stride, goOn));
    return picture;
}

Plane flipped(const Plane& picture) {
    return plane([&](int x, int y) { return picture[(kHeight - 1 - y) * kStride + x]; });
}

// One frame in a list, as the client submits it. Neither copied nor moved: the links point inside.
struct Submission {
    explicit Submission(Plane* picture, uint64_t id = 1, uint64_t idx = 0)
        : list{{&node.links, &node.links}, 1},
          node{{&list.ends, &list.ends},
               {id, idx, kWidth, kHeight, kStride, 0, picture->data(), picture->data()}} {}
    Submission(const Submission&) = delete;
    Submission& operator=(const Submission&) = delete;

    AisrBufferList list;
    AisrBufferNode node;
};

class SampleProcessing : public testing::Test {
protected:
    int32_t submit(const Submission& frame) {
        return AisrSetParam(&mContext, AISR_TAG_SET_BUF, &frame.list, sizeof(frame.list));
    }
    int32_t cancel(const Submission& frame) {
        return AisrSetParam(&mContext, AISR_TAG_SET_TIMEOUT, &frame.node.buffer,
                            sizeof(AisrBuffer));
    }

    Plane mPicture = texture();
    const Submission mFrame{&mPicture};
    void* mContext = nullptr;
};

TEST(LumaSharpener, SteepensEdgesAndLeavesNoiseAlone) {
    const Plane edge = plane([](int x, int) { return std::clamp(60 + (x - 28) * 20, 60, 160); });
    const Plane sharpEdge = sharpened(edge);
    EXPECT_LT(sharpEdge[10 * kStride + 28], 55) << "the dark foot of the ramp gets darker";
    EXPECT_GT(sharpEdge[10 * kStride + 33], 165) << "and its bright foot brighter";

    std::mt19937 random(3);
    const Plane noise = plane([&](int, int) { return 100 + static_cast<int>(random() % 5); });
    EXPECT_EQ(sharpened(noise), noise);
}

// In place, a row sees its sharpened upper neighbours unless the originals are kept: the result
// would then depend on which way up the picture is.
TEST(LumaSharpener, ResultDoesNotDependOnTheOrderOfRowsAndKeepsThePadding) {
    const Plane picture = texture();
    const Plane result = sharpened(picture);
    EXPECT_NE(result, picture);
    EXPECT_EQ(flipped(sharpened(flipped(picture))), result);
    for (int y = 0; y < kHeight; ++y) {
        ASSERT_EQ(result[y * kStride + kWidth], kPadding);
    }
}

TEST(LumaSharpener, TakesTheSmallestPictures) {
    for (const auto& [width, height] : {std::pair{1, 1}, {1, 5}, {5, 1}, {2, 3}}) {
        const Plane flat(width * height, 77);
        EXPECT_EQ(sharpened(flat, width, height, width), flat);
    }
}

TEST_F(SampleProcessing, KeepsTheOrderOfItsEntries) {
    EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(AisrDeinit(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(AisrDoClean(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(submit(mFrame), AISR_ERR_FATAL);
    EXPECT_EQ(cancel(mFrame), AISR_ERR_FATAL);
    const int32_t level = 3;
    int32_t readLevel = 0;
    EXPECT_EQ(AisrSetParam(&mContext, AISR_TAG_SET_LOG_LEVEL, &level, 4), AISR_SUCCESS);
    EXPECT_EQ(AisrGetParam(&mContext, AISR_TAG_SET_LOG_LEVEL, &readLevel, 4), AISR_SUCCESS);
    EXPECT_EQ(readLevel, level);

    for (int session = 0; session < 2; ++session) {
        restore(mPicture);
        EXPECT_EQ(AisrInit(&mContext), AISR_SUCCESS);
        EXPECT_EQ(AisrInit(&mContext), AISR_ERR_FATAL);
        EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_BUF_COPY) << "nothing was submitted";
        EXPECT_EQ(submit(mFrame), AISR_SUCCESS);
        EXPECT_EQ(AisrProcess(&mContext), AISR_SUCCESS);
        EXPECT_EQ(mPicture, sharpened(texture()));
        EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_BUF_COPY) << "a frame is processed once";
        EXPECT_EQ(submit(mFrame), AISR_SUCCESS);
        EXPECT_EQ(AisrDoClean(&mContext), AISR_SUCCESS);
        EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_BUF_COPY);
        EXPECT_EQ(AisrDeinit(&mContext), AISR_SUCCESS);
        EXPECT_EQ(mContext, nullptr);
    }
}

TEST_F(SampleProcessing, RefusesWhatItCannotProcess) {
    ASSERT_EQ(AisrInit(&mContext), AISR_SUCCESS);
    using Spoil = void (*)(Submission&);
    const Spoil spoils[] = {
        [](Submission& s) { s.list.count = 2; },
        [](Submission& s) { s.list.ends.next = nullptr; },
        [](Submission& s) { s.node.buffer.id = 0; },
        [](Submission& s) { s.node.buffer.y = nullptr; },
        [](Submission& s) { s.node.buffer.height = -1; },
        [](Submission& s) { s.node.buffer.width = s.node.buffer.stride = INT32_MAX; },
        [](Submission& s) { s.node.buffer.stride = kWidth - 1; },
    };
    for (const Spoil& spoil : spoils) {
        Submission frame(&mPicture);
        spoil(frame);
        EXPECT_EQ(submit(frame), AISR_ERR_BUF_COPY) << "spoil " << &spoil - spoils;
        EXPECT_EQ(AisrProcess(&mContext), AISR_ERR_BUF_COPY);
    }
    EXPECT_EQ(AisrSetParam(&mContext, AISR_TAG_SET_BUF, &mFrame.list, 23), AISR_ERR_FATAL);
    EXPECT_EQ(AisrSetParam(&mContext, AISR_TAG_NEW_MEM, &mFrame.list, 24), AISR_ERR_FATAL);
    EXPECT_EQ(AisrSetParam(&mContext, AISR_TAG_SET_BUF, nullptr, 24), AISR_ERR_FATAL);
    EXPECT_EQ(AisrDeinit(&mContext), AISR_SUCCESS);
}

TEST_F(SampleProcessing, CancelStopsTheNamedFrameOnly) {
    ASSERT_EQ(AisrInit(&mContext), AISR_SUCCESS);
    const std::tuple<uint64_t, uint64_t, int32_t> cancels[] = {
        {1, 0, AISR_ERR_TIMEOUT}, {1, 4, AISR_SUCCESS}, {2, 0, AISR_SUCCESS}};
    for (const auto& [id, idx, status] : cancels) {
        restore(mPicture);
        EXPECT_EQ(cancel(Submission(&mPicture, id, idx)), AISR_SUCCESS);
        EXPECT_EQ(submit(mFrame), AISR_SUCCESS);
        EXPECT_EQ(AisrProcess(&mContext), status);
        EXPECT_EQ(mPicture == texture(), status == AISR_ERR_TIMEOUT);
        EXPECT_EQ(submit(mFrame), AISR_SUCCESS);
        EXPECT_EQ(AisrProcess(&mContext), AISR_SUCCESS) << "a cancel counts once";
    }
    EXPECT_EQ(AisrDeinit(&mContext), AISR_SUCCESS);
}

// The slowed frame would take an hour; only the cancel ends it. The library's log tells when it is
// at work.
TEST_F(SampleProcessing, CancelEndsASlowFrame) {
    setenv("AISR_SAMPLE_SLOW_MS", "3600000", 1);
    const int32_t level = 3;
    ASSERT_EQ(AisrSetParam(&mContext, AISR_TAG_SET_LOG_LEVEL, &level, 4), AISR_SUCCESS);
    ASSERT_EQ(AisrInit(&mContext), AISR_SUCCESS);
    ASSERT_EQ(submit(mFrame), AISR_SUCCESS);

    int log[2];
    const int savedError = dup(STDERR_FILENO);
    ASSERT_EQ(pipe(log), 0);
    dup2(log[1], STDERR_FILENO);
    auto status = std::async(std::launch::async, [&] { return AisrProcess(&mContext); });
    char line[64] = {};
    EXPECT_GT(read(log[0], line, sizeof(line) - 1), 0);
    EXPECT_STREQ(line, "aisr sample: frame begun\n");
    EXPECT_EQ(cancel(mFrame), AISR_SUCCESS);
    EXPECT_EQ(status.get(), AISR_ERR_TIMEOUT);
    dup2(savedError, STDERR_FILENO);
    EXPECT_EQ(AisrDeinit(&mContext), AISR_SUCCESS);
}

}  // namespace
