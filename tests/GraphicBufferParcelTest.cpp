// The parcelable around a graphic buffer: its bytes, damaged ones, and memory shared by processes.
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <cstring>
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

const char kIntegers[] = "01000000 01000000 02000000 03000000 04000000";
constexpr size_t kIntegersEnd = 20;
constexpr uint64_t kUsage =
    GraphicBuffer::USAGE_SW_READ_OFTEN | GraphicBuffer::USAGE_SW_WRITE_OFTEN;

sp<GraphicBuffer> makeBuffer(uint32_t width, uint32_t height) {
    return new GraphicBuffer(width, height, android::PIXEL_FORMAT_RGBA_8888, 1, kUsage);
}

/// What an object with `buffer` and the integers 1 to 4 writes.
void writeWhole(const sp<GraphicBuffer>& buffer, Parcel* parcel) {
    for (const int32_t value : {1, 1, 2, 3, 4}) {
        parcel->writeInt32(value);
    }
    parcel->write(*buffer);
    parcel->setDataPosition(0);
}

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

TEST(GraphicBufferParcelTest, WithoutABufferOnlyTheFlagIsWritten) {
    EXPECT_EQ(written(DeGraphicBuffer()), "00000000");
    EXPECT_EQ(written(DeGraphicBuffer(nullptr)), "00000000");
    Parcel empty;
    DeGraphicBuffer fresh;
    EXPECT_EQ(fresh.readFromParcel(&empty), OK);  // past the end reads as absent
    EXPECT_EQ(fresh.getGraphicBuffer(), nullptr);

    const sp<GraphicBuffer> buffer = makeBuffer(3, 2);
    DeGraphicBuffer holding(buffer);
    Parcel parcel;
    writeWhole(buffer, &parcel);
    ASSERT_EQ(holding.readFromParcel(&parcel), OK);
    Parcel absent;
    absent.writeBool(false);
    absent.setDataPosition(0);
    EXPECT_EQ(holding.readFromParcel(&absent), OK);
    EXPECT_EQ(holding.getGraphicBuffer(), buffer);
    EXPECT_EQ(written(holding).substr(0, sizeof kIntegers - 1), kIntegers);
    holding.setGraphicBuffer(nullptr);
    EXPECT_EQ(written(holding), "00000000");
}

TEST(GraphicBufferParcelTest, IntegersAndBufferSurviveInANewOrInTheHeldObject) {
    const sp<GraphicBuffer> buffer = makeBuffer(3, 2);
    pixels(buffer)[5] = 42;
    const sp<GraphicBuffer> held = makeBuffer(8, 8);
    DeGraphicBuffer objects[] = {DeGraphicBuffer(), DeGraphicBuffer(held)};
    for (DeGraphicBuffer& object : objects) {
        Parcel parcel;
        writeWhole(buffer, &parcel);
        EXPECT_EQ(object.readFromParcel(&parcel), OK);
        EXPECT_EQ(parcel.dataAvail(), 0U);
        EXPECT_EQ(written(object), protocol::hex(parcel));
        const sp<GraphicBuffer> read = object.getGraphicBuffer();
        ASSERT_NE(read, nullptr);
        EXPECT_NE(read, buffer);
        EXPECT_EQ(read->getWidth(), 3U);
        EXPECT_EQ(read->getHeight(), 2U);
        EXPECT_EQ(pixels(read)[5], 42);
    }
    EXPECT_EQ(objects[1].getGraphicBuffer(), held);
}

TEST(GraphicBufferParcelTest, ADamagedParcelGivesZerosAndABufferWithoutMemory) {
    const sp<GraphicBuffer> buffer = makeBuffer(3, 2);
    Parcel whole;
    writeWhole(buffer, &whole);
    for (size_t size = 4; size < whole.dataSize(); size += 4) {
        SCOPED_TRACE(size);
        Parcel cut;
        writeWhole(buffer, &cut);
        ASSERT_EQ(cut.setDataSize(size), OK);
        cut.setDataPosition(0);
        DeGraphicBuffer object;
        EXPECT_EQ(object.readFromParcel(&cut), OK);
        ASSERT_NE(object.getGraphicBuffer(), nullptr);
        EXPECT_NE(object.getGraphicBuffer()->initCheck(), OK);
        std::vector<uint8_t> expected(kIntegersEnd);
        std::memcpy(expected.data(), whole.data(), std::min(size, kIntegersEnd));
        EXPECT_EQ(written(object).substr(0, sizeof kIntegers - 1),
                  protocol::hex(expected.data(), expected.size()));
    }
}

TEST(GraphicBufferParcelTest, ProcessesShareTheMemoryThatTheDescriptorsName) {
    const protocol::Peer peer;
    const sp<IDisplayEngineService> service = IDisplayEngineService::asInterface(peer.service);
    const sp<GraphicBuffer> buffer = makeBuffer(6, 2);
    uint8_t* const mine = pixels(buffer);
    mine[0] = 7;
    DeGraphicBuffer input(buffer);
    Parcel parcel;
    writeWhole(buffer, &parcel);
    ASSERT_EQ(input.readFromParcel(&parcel), OK);  // the integers, and the same memory again
    DeGraphicBuffer output;
    int32_t result = 0;
    EXPECT_TRUE(service->processGraphicBuffer(1, 2, &input, &output, &result).isOk());
    EXPECT_EQ(protocol::Peer::takeCalls(peer.service, 1),
              std::vector<std::string>{"processGraphicBuffer 1 2 6x2 none"});
    EXPECT_EQ(result, 1012);

    EXPECT_EQ(input.getGraphicBuffer(), buffer);
    EXPECT_EQ(written(input).substr(0, sizeof kIntegers - 1), kIntegers);
    EXPECT_EQ(pixels(buffer)[0], 8) << "the peer's change does not show";
    ASSERT_NE(output.getGraphicBuffer(), nullptr);
    EXPECT_EQ(output.getGraphicBuffer()->getWidth(), 4U);
    EXPECT_EQ(pixels(output.getGraphicBuffer())[0], 9);
}

}  // namespace

int main(int argc, char** argv) {
    return protocol::testMain(argc, argv);
}
