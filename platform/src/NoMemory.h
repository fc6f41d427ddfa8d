// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/Errors.h>

#include <new>
#include <type_traits>

namespace android {

/** Calls `f` and returns its result, OK for none, or NO_MEMORY when an allocation in it fails. */
template <typename F>
status_t orNoMemory(F f) {
    try {
        if constexpr (std::is_void_v<std::invoke_result_t<F>>) {
            f();
            return OK;
        } else {
            return f();
        }
    } catch (const std::bad_alloc&) {
        return NO_MEMORY;
    }
}

}  // namespace android
