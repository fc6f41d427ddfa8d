// SPDX-License-Identifier: Apache-2.0
// The parcelable around a graphic buffer between two processes: its bytes, and the memory that both
// share. Damaged ones are covered by PlatformTest and the stub's fuzzer.
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <string>
#include <vector>

#include "aidl/DeGraphicBuffer.h"
#include "aidl/IDisplayEngineService.h"
#include "support/ProtocolPeer.h"

using android::GraphicBuffer;
using android::OK;
using android::Parcel;
using android::sp;
using com::tivora::displayengine::DeGraphicBuffer;
using com::tivora::displayengine::IDisplayEngineService;

namespace {

constexpr uint64_t kUsage =
    GraphicBuffer::USAGE_SW_READ_OFTEN | GraphicBuffer::USAGE_SW_WRITE_OFTEN;

std::string written(const DeGraphicBuffer& object) {
    Parcel parcel;
    EXPECT_EQ(object.writeToParcel(&parcel), OK);
    return protocol::hex(parcel);
}

uint8_t* pixels(const sp<GraphicBuffer>& buffer) {
    void* address = nullptr;
    EXPECT_EQ(buffer->lock(kUsage, &address), OK);
    return static_cast<uint8_t*>(address);
}

TEST(GraphicBufferParcelTest, ProcessesShareTheMemoryThatTheDescriptorsName) {
    const protocol::Peer peer;
    const sp<IDisplayEngineService> service = IDisplayEngineService::asInterface(peer.service);
    const sp<GraphicBuffer> buffer =
        new GraphicBuffer(6, 2, android::PIXEL_FORMAT_RGBA_8888, 1, kUsage);
    pixels(buffer)[0] = 7;
    DeGraphicBuffer input(buffer);
    Parcel parcel;
    for (const int32_t value : {1, 1, 2, 3, 4}) {
        parcel.writeInt32(value);
    }
    parcel.write(*buffer);
    parcel.setDataPosition(0);
    ASSERT_EQ(input.readFromParcel(&parcel), OK);  // the integers, and the same memory again
    DeGraphicBuffer output;
    int32_t result = 0;
    EXPECT_TRUE(service->processGraphicBuffer(1, 2, &input, &output, &result).isOk());
    EXPECT_EQ(protocol::Peer::takeCalls(peer.service, 1),
              std::vector<std::string>{"processGraphicBuffer 1 2 6x2 none"});
    EXPECT_EQ(result, 1012);

    EXPECT_EQ(input.getGraphicBuffer(), buffer);
    EXPECT_EQ(written(input).rfind("01000000 01000000 02000000 03000000 04000000 ", 0), 0U);
    EXPECT_EQ(pixels(buffer)[0], 8) << "the peer's change does not show";
    ASSERT_NE(output.getGraphicBuffer(), nullptr);
    EXPECT_EQ(output.getGraphicBuffer()->getWidth(), 4U);
    EXPECT_EQ(pixels(output.getGraphicBuffer())[0], 9);

    input.setGraphicBuffer(nullptr);
    EXPECT_EQ(written(input), "00000000") << "without a buffer there is only the flag";
}

}  // namespace

int main(int argc, char** argv) {
    return protocol::testMain(argc, argv);
}
