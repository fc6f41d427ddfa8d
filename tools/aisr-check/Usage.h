// SPDX-License-Identifier: Apache-2.0
// What this process uses of what a library can leak.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace checker {

enum Resource : size_t {
    kHeap,
    kResident,
    kAddresses,
    kDescriptors,
    kMappings,
    kThreads,
    kResources
};

/** Amounts by resource: bytes, or a count. */
using Usage = std::array<int64_t, kResources>;

Usage measureUsage();

/** How many threads this process has. */
int64_t threadCount();

/**
 * Reports what has grown steadily from `start` over `middle` to `end`, that is, in both halves:
 * what is only set up once is no growth. `calls` calls lie between start and end; `unit` names one.
 * `isBreach` makes it a failure, and a warning otherwise. False when nothing has grown.
 */
bool reportGrowth(const Usage& start, const Usage& middle, const Usage& end, int calls,
                  const char* unit, bool isBreach);

}  // namespace checker
