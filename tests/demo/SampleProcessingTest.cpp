// SPDX-License-Identifier: Apache-2.0
// The sample processing library and the template for others: the order of the entries, the cancel.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <utility>
#include <vector>

#include "ProgramRun.h"
#include "common/AisrProcess.h"
#include "support/ThreadState.h"

namespace {

/** The parameter is the library's folder in the build. */
class SampleProcessingTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        const std::string file = kDemo.parent_path() / GetParam() / "libAISRProcess_interface.so";
        mLibrary = dlopen(file.c_str(), RTLD_NOW);
        ASSERT_NE(mLibrary, nullptr) << dlerror();
        find("AisrInit", &mInit);
        find("AisrDeinit", &mDeinit);
        find("AisrProcess", &mProcess);
        find("AisrSetParam", &mSetParam);
    }
    void TearDown() override { dlclose(mLibrary); }

    template <typename ENTRY>
    void find(const char* name, ENTRY* entry) {
        *entry = reinterpret_cast<ENTRY>(dlsym(mLibrary, name));
        ASSERT_NE(*entry, nullptr);
    }
    int32_t set(int32_t tag, const void* data, uint64_t size) {
        return mSetParam(&mContext, tag, data, size);
    }
    int32_t submit() { return set(AISR_TAG_SET_BUF, &mList, sizeof(mList)); }
    int32_t cancel(uint64_t id, uint64_t idx) {
        const AisrBuffer frame = {id, idx, 64, 48, 64, 0, nullptr, nullptr};
        return set(AISR_TAG_SET_TIMEOUT, &frame, sizeof(frame));
    }

    void* mLibrary = nullptr;
    decltype(&AisrInit) mInit = nullptr;
    decltype(&AisrDeinit) mDeinit = nullptr;
    decltype(&AisrProcess) mProcess = nullptr;
    decltype(&AisrSetParam) mSetParam = nullptr;

    std::vector<uint8_t> mPicture = std::vector<uint8_t>(64 * 48);
    AisrBufferList mList = {{&mNode.links, &mNode.links}, 1};
    AisrBufferNode mNode = {{&mList.ends, &mList.ends},
                            {1, 7, 64, 48, 64, 0, mPicture.data(), mPicture.data()}};
    void* mContext = nullptr;
};

using EachLibraryTest = SampleProcessingTest;
INSTANTIATE_TEST_SUITE_P(Libraries, EachLibraryTest,
                         testing::Values("demo/processing", "tools/template"));

TEST_P(EachLibraryTest, KeepsTheOrderOfItsEntriesAndCancelsTheNamedFrameOnly) {
    const int32_t level = 1;
    EXPECT_EQ(set(AISR_TAG_SET_LOG_LEVEL, &level, sizeof(level)), AISR_SUCCESS) << "before init";
    EXPECT_EQ(mProcess(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(submit(), AISR_ERR_FATAL);
    EXPECT_EQ(cancel(1, 7), AISR_ERR_FATAL);
    EXPECT_EQ(mInit(&mContext), AISR_SUCCESS);
    EXPECT_EQ(mInit(&mContext), AISR_ERR_FATAL);
    EXPECT_EQ(mProcess(&mContext), AISR_ERR_BUF_COPY) << "nothing was submitted";
    EXPECT_EQ(set(AISR_TAG_NUM, &mList, sizeof(mList)), AISR_ERR_FATAL);
    EXPECT_EQ(set(AISR_TAG_SET_BUF, &mList, sizeof(mList) + 8), AISR_ERR_FATAL);
    for (const auto& [id, idx] : {std::pair{1U, 7U}, {1U, 4U}, {2U, 7U}}) {
        EXPECT_EQ(cancel(id, idx), AISR_SUCCESS);
        EXPECT_EQ(submit(), AISR_SUCCESS);
        const bool isNamed = id == 1 && idx == 7;
        EXPECT_EQ(mProcess(&mContext), isNamed ? AISR_ERR_TIMEOUT : AISR_SUCCESS);
        EXPECT_EQ(mProcess(&mContext), AISR_ERR_BUF_COPY) << "a frame is processed once";
        EXPECT_EQ(submit(), AISR_SUCCESS);
        EXPECT_EQ(mProcess(&mContext), AISR_SUCCESS) << "a cancel counts once";
    }
    mNode.buffer.stride = 63;
    EXPECT_EQ(submit(), AISR_ERR_BUF_COPY) << "rows overlap";
    EXPECT_EQ(mDeinit(&mContext), AISR_SUCCESS);
    EXPECT_EQ(mContext, nullptr);
}

using SlowLibraryTest = SampleProcessingTest;
INSTANTIATE_TEST_SUITE_P(Libraries, SlowLibraryTest, testing::Values("demo/processing"));

// The slowed frame would take an hour; only the cancel ends it.
TEST_P(SlowLibraryTest, CancelEndsASlowFrame) {
    setenv("AISR_SAMPLE_SLOW_MS", "3600000", 1);
    ASSERT_EQ(mInit(&mContext), AISR_SUCCESS);
    ASSERT_EQ(submit(), AISR_SUCCESS);
    auto status = startAndWaitUntilAsleep([&] { return mProcess(&mContext); });
    EXPECT_EQ(cancel(1, 7), AISR_SUCCESS);
    EXPECT_EQ(status.get(), AISR_ERR_TIMEOUT);
    EXPECT_EQ(mDeinit(&mContext), AISR_SUCCESS);
}

}  // namespace
