// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

/**
 * A program that links this has a steady clock that stands still unless it is moved. The wait for a
 * condition until a point of the steady clock follows it, except under the thread sanitizer; waits
 * with the wall clock keep real time.
 */
namespace controlled_clock {

void advance(std::chrono::nanoseconds duration);

/**
 * The next look at the wall clock is off by `error`, and no other: a C++ runtime may compare a
 * deadline with the clock as well as leave it to the kernel.
 */
void misreadWallClockOnce(std::chrono::nanoseconds error);

/** Blocks until a thread, having looked at the clock as it stands, waits until a point of it. */
void waitForSleeper();

}  // namespace controlled_clock
