// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Errors.h>
#include <cstdint>

namespace android {

class Parcel;

/** A value that writes itself to a parcel and reads itself back. */
class Parcelable {
public:
    enum class Stability : int32_t { STABILITY_LOCAL, STABILITY_VINTF };

    virtual ~Parcelable() = default;

    virtual status_t writeToParcel(Parcel* parcel) const = 0;
    virtual status_t readFromParcel(const Parcel* parcel) = 0;
    /** How long the layout is promised to hold; by default not beyond this build. */
    virtual Stability getStability() const { return Stability::STABILITY_LOCAL; }
};

}  // namespace android
