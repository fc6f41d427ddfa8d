// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

/** Counts its scope in for as long as it lives, so that a teardown can wait for the last one. */
class CountedScope {
public:
    /** Raises `count`, which outlives this. */
    explicit CountedScope(std::atomic<int32_t>& count) : mCount(count) { ++mCount; }
    ~CountedScope() { --mCount; }
    CountedScope(const CountedScope&) = delete;
    CountedScope& operator=(const CountedScope&) = delete;

private:
    std::atomic<int32_t>& mCount;
};
