// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <binder/IBinder.h>

namespace android {
namespace internal {

/**
 * How long an object's interface is promised to stay as it is. Both ends here are always built
 * together, so nothing is refused; the mark only travels with the object.
 */
class Stability final {
public:
    enum Level : int32_t { UNDECLARED = 0, VENDOR = 0b000011, SYSTEM = 0b001100, VINTF = 0b111111 };

    /** Marks an object of this process with the level of the code that creates it. */
    static void markCompilationUnit(IBinder* binder);

    /** The mark of an object, UNDECLARED for none and for null. */
    static int32_t getStability(IBinder* binder);

    /** Sets the mark, as a parcel does with the one that came with a proxy. */
    static void setStability(IBinder* binder, int32_t level);
};

}  // namespace internal
}  // namespace android
