// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Parcel.h>
#include <binder/Parcelable.h>
#include <ui/GraphicBuffer.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include <array>
#include <cstdint>

#include "common/Export.h"

namespace com {
namespace tivora {
namespace displayengine {

/**
 * A graphic buffer that crosses the binder in either direction, with four integers beside it whose
 * meaning the service and its clients agree on. Not thread-safe.
 */
class DE_EXPORT DeGraphicBuffer : public android::Parcelable {
public:
    /** Four zeros and no buffer. */
    DeGraphicBuffer();
    /** Four zeros; shares `buffer`, which may be null. */
    explicit DeGraphicBuffer(const android::sp<android::GraphicBuffer>& buffer);
    ~DeGraphicBuffer() override;

    /** Always OK. Without a buffer only the mark of its absence is written, not the integers. */
    android::status_t writeToParcel(android::Parcel* parcel) const override;

    /**
     * OK, also for a short or damaged parcel, or NO_MEMORY: integers that could not be read are 0
     * and the buffer is as a failed unflatten leaves it, so a reader checks the buffer before it
     * uses it. A parcel without a buffer leaves the object as it was. A buffer already held is read
     * into.
     */
    android::status_t readFromParcel(const android::Parcel* parcel) override;

    /** Shares `buffer` in place of the one held; null is allowed. */
    void setGraphicBuffer(const android::sp<android::GraphicBuffer>& buffer);
    /** The buffer held, or null. */
    android::sp<android::GraphicBuffer> getGraphicBuffer();

private:
    std::array<int32_t, 4> mParams{};
    android::sp<android::GraphicBuffer> mGraphicBuffer;
};

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
