// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include <utils/Errors.h>

namespace android {

/**
 * An object that can be turned into bytes and file descriptors and back. `T` derives from
 * Flattenable<T> and supplies the four operations of the same names. Each of them moves the
 * pointers and counts past what it has used. Descriptors stay the property of the buffer's owner
 * in both directions: flatten() lends its own, unflatten() duplicates what it keeps.
 */
template <typename T>
class Flattenable {
public:
    /** Bytes that flatten() fills. */
    size_t getFlattenedSize() const { return self().T::getFlattenedSize(); }
    /** Descriptors that flatten() fills. */
    size_t getFdCount() const { return self().T::getFdCount(); }
    /** Writes the object; NO_MEMORY when the ranges are too small. */
    status_t flatten(void*& buffer, size_t& size, int*& fds, size_t& count) const {
        return self().T::flatten(buffer, size, fds, count);
    }
    /** Rebuilds the object from untrusted bytes. */
    status_t unflatten(const void*& buffer, size_t& size, const int*& fds, size_t& count) {
        return static_cast<T*>(this)->T::unflatten(buffer, size, fds, count);
    }

private:
    const T& self() const { return *static_cast<const T*>(this); }
};

}  // namespace android
