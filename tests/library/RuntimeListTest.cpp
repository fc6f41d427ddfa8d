// SPDX-License-Identifier: Apache-2.0
// The frames that the client library submits are a list of the device's C++ runtime, for which its
// processing library takes them.
#include <gtest/gtest.h>

#include <cstring>
#include <list>
#include <vector>

#include "aisr/AisrAlgorithm.h"
#include "support/ProcessingLibrary.h"

namespace {

TEST(RuntimeListTest, CarriesTheFrameToTheProcessingLibrary) {
    using Frames = std::list<AisrBuffer>;
    const Frames* frames = nullptr;
    std::vector<AisrBuffer> found;
    processing::use("without_nothing");
    processing::setHook([&](const processing::Call& call) {
        if (call.tag == AISR_TAG_SET_BUF) {
            EXPECT_EQ(call.data.size(), sizeof(Frames));
            frames = static_cast<const Frames*>(call.address);
        } else if (call.entry == "AisrProcess") {
            // Walked only here: it has to last until the process call has returned.
            EXPECT_EQ(frames->size(), 1U);
            found.assign(frames->begin(), frames->end());
            found.insert(found.end(), frames->rbegin(), frames->rend());
        }
        return 0;
    });
    AisrAlgorithm algorithm;
    processing::Frame frame;
    for (uint64_t idx = 9; idx < 12; ++idx) {
        Aisr::BufferInfo info = frame.info(0x7b3f);
        info.idx = idx;
        ASSERT_EQ(algorithm.enhance(info), 0);
        ASSERT_EQ(found.size(), 2U) << "once each way";
        const AisrBuffer expected = {info.id,     idx, info.width, info.height,
                                     info.stride, 0,   info.y,     info.uv};
        for (const AisrBuffer& buffer : found) {
            EXPECT_EQ(std::memcmp(&buffer, &expected, sizeof(expected)), 0);
        }
    }
}

}  // namespace
