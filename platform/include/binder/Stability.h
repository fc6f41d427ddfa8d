// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>

namespace android::internal {

/**
 * How long an object's interface is promised to stay as it is. Both ends here are always built
 * together, so nothing is refused; the mark only travels with the object.
 */
class Stability final {
public:
    enum Level : int32_t { UNDECLARED = 0, VENDOR = 0b000011, SYSTEM = 0b001100, VINTF = 0b111111 };

    /** Marks an object of this process with the level of the code that creates it. */
    static void markCompilationUnit(IBinder* binder) { binder->mStability = SYSTEM; }

    /** The mark of an object, UNDECLARED for none and for null. */
    static int32_t getStability(IBinder* binder) {
        return binder != nullptr ? binder->mStability.load() : int32_t{UNDECLARED};
    }
};

}  // namespace android::internal
