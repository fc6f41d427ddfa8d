#pragma once

#include <chrono>

/**
 * A program that links this has a steady clock that stands still unless it is moved. The wait for a
 * condition until a point of the steady clock follows it, except under the thread sanitizer; waits
 * with the wall clock keep real time.
 */
namespace controlled_clock {

void advance(std::chrono::nanoseconds duration);

/** Makes the wall clock run before or behind the real one, from the next look at it. */
void stepWallClock(std::chrono::nanoseconds duration);

/** Blocks until a thread, having looked at the clock as it stands, waits until a point of it. */
void waitForSleeper();

}  // namespace controlled_clock
