// SPDX-License-Identifier: Apache-2.0
// The parcelable around a graphic buffer: its bytes, and what an object becomes by reading one. A
// damaged one is the fuzzers' subject.
#include <binder/Parcel.h>
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <string>

#include "aidl/DeGraphicBuffer.h"
#include "support/Recording.h"

using android::GraphicBuffer;
using android::OK;
using android::Parcel;
using android::sp;
using com::tivora::displayengine::DeGraphicBuffer;

namespace {

const std::string kAbsent = "00000000";
const std::string kNumbered = "01000000 01000000 02000000 03000000 04000000 "; /**< its beginning */

sp<GraphicBuffer> newBuffer(uint32_t width) {
    return new GraphicBuffer(width, 2, android::PIXEL_FORMAT_RGBA_8888, 1,
                             GraphicBuffer::USAGE_SW_WRITE_OFTEN);
}

std::string written(const DeGraphicBuffer& object) {
    Parcel parcel;
    EXPECT_EQ(object.writeToParcel(&parcel), OK);
    return protocol::hex(parcel);
}

/** Makes `object` read four integers and a buffer of this width; none for a width of 0. */
void read(DeGraphicBuffer* object, uint32_t width) {
    Parcel parcel;
    parcel.writeBool(width != 0);
    if (width != 0) {
        for (const int32_t value : {1, 2, 3, 4}) {
            parcel.writeInt32(value);
        }
        parcel.write(*newBuffer(width));
    }
    parcel.setDataPosition(0);
    EXPECT_EQ(object->readFromParcel(&parcel), OK);
}

TEST(GraphicBufferParcelTest, ReadsIntoTheBufferThatItHoldsAndKeepsItWhenNoneComes) {
    const struct {
        uint32_t held; /**< widths; 0 for none */
        uint32_t read;
        uint32_t width;
    } cases[] = {{0, 0, 0}, {0, 6, 6}, {5, 6, 6}, {5, 0, 5}};
    for (const auto& expected : cases) {
        SCOPED_TRACE(std::to_string(expected.held) + " reads " + std::to_string(expected.read));
        const sp<GraphicBuffer> held = expected.held == 0 ? nullptr : newBuffer(expected.held);
        DeGraphicBuffer object(held);
        read(&object, expected.read);
        const sp<GraphicBuffer> now = object.getGraphicBuffer();
        EXPECT_EQ(now == nullptr ? 0 : now->getWidth(), expected.width);
        EXPECT_TRUE(held == nullptr || now == held);
        EXPECT_EQ(written(object) == kAbsent, expected.width == 0);
        EXPECT_EQ(written(object).rfind(kNumbered, 0) == 0, expected.read != 0);
        object.setGraphicBuffer(nullptr);
        EXPECT_EQ(written(object), kAbsent) << "without a buffer there is only the flag";
    }
}

}  // namespace
