// SPDX-License-Identifier: Apache-2.0
// The frames that the client library submits are a list of the device's C++ runtime, for which its
// processing library takes them.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <list>

#include "aisr/AisrAlgorithm.h"
#include "support/ProcessingLibrary.h"

namespace {

TEST(RuntimeListTest, CarriesTheFrameToTheProcessingLibrary) {
    using Frames = std::list<AisrBuffer>;
    const Frames* frames = nullptr;
    processing::Frame frame;
    Aisr::BufferInfo info = frame.info(0x7b3f);
    info.idx = 9;
    const AisrBuffer sent = {info.id, 9, info.width, info.height, info.stride, 0, info.y, info.uv};
    processing::use("without_nothing");
    processing::setHook([&](const processing::Call& call) {
        if (call.tag == AISR_TAG_SET_BUF) {
            EXPECT_EQ(call.data.size(), sizeof(Frames));
            frames = static_cast<const Frames*>(call.address);
        } else if (call.entry == "AisrProcess") {
            // Walked only here: it has to last until the process call has returned.
            EXPECT_EQ(frames->size(), 1U);
            EXPECT_EQ(std::distance(frames->begin(), frames->end()), 1);
            EXPECT_EQ(std::memcmp(&frames->front(), &sent, sizeof(sent)), 0);
            EXPECT_EQ(std::memcmp(&frames->back(), &sent, sizeof(sent)), 0);
        }
        return 0;
    });
    AisrAlgorithm algorithm;
    EXPECT_EQ(algorithm.enhance(info), 0);
    EXPECT_EQ(processing::count("AisrProcess"), 1U);
}

}  // namespace
