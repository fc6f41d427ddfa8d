// SPDX-License-Identifier: Apache-2.0
#include "aidl/DeGraphicBuffer.h"

#include "common/NoThrow.h"

namespace com {
namespace tivora {
namespace displayengine {

using android::GraphicBuffer;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;

DeGraphicBuffer::DeGraphicBuffer() = default;

DeGraphicBuffer::DeGraphicBuffer(const sp<GraphicBuffer>& buffer) : mGraphicBuffer(buffer) {}

DeGraphicBuffer::~DeGraphicBuffer() = default;

status_t DeGraphicBuffer::writeToParcel(Parcel* parcel) const {
    parcel->writeBool(mGraphicBuffer != nullptr);
    if (mGraphicBuffer == nullptr) {
        return OK;
    }
    for (const int32_t param : mParams) {
        parcel->writeInt32(param);
    }
    parcel->write(*mGraphicBuffer);
    return OK;
}

status_t DeGraphicBuffer::readFromParcel(const Parcel* parcel) {
    if (!parcel->readBool()) {
        return OK;
    }
    if (mGraphicBuffer == nullptr) {
        mGraphicBuffer =
            noThrow(sp<GraphicBuffer>(), [] { return sp<GraphicBuffer>(new GraphicBuffer()); });
    }
    if (mGraphicBuffer == nullptr) {
        return android::NO_MEMORY;  // What follows in the parcel cannot be told apart.
    }
    for (int32_t& param : mParams) {
        param = parcel->readInt32();
    }
    parcel->read(*mGraphicBuffer);
    return OK;
}

void DeGraphicBuffer::setGraphicBuffer(const sp<GraphicBuffer>& buffer) {
    mGraphicBuffer = buffer;
}

sp<GraphicBuffer> DeGraphicBuffer::getGraphicBuffer() {
    return mGraphicBuffer;
}

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
