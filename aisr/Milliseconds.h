// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

/** A steady-clock duration as the engine reports and compares it: single-precision milliseconds. */
inline float toMilliseconds(std::chrono::nanoseconds duration) {
    return static_cast<float>(duration.count()) / 1e6F;
}
