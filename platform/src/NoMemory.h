// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Errors.h>

#include <new>

namespace android {

/** Calls `f` and returns its result, or NO_MEMORY when an allocation in it fails. */
template <typename F>
status_t orNoMemory(F f) {
    try {
        return f();
    } catch (const std::bad_alloc&) {
        return NO_MEMORY;
    }
}

}  // namespace android
