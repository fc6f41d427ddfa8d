// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>

#define NOTHING_ENTRY __attribute__((visibility("default")))

/** Frames processed so far, by one thread at a time. */
extern NOTHING_ENTRY std::atomic<uint64_t> gNothingProcessed;
/** Milliseconds that a frame takes at least, while it is so; 0 ends the one that is waiting. */
extern NOTHING_ENTRY std::atomic<int32_t> gNothingDelayMs;
/** Called for each frame, unless it is null, for other times than whole milliseconds. */
extern NOTHING_ENTRY std::atomic<void (*)()> gNothingWork;
/** Called by the deinit entry, unless it is null. */
extern NOTHING_ENTRY std::atomic<void (*)()> gNothingDeinitWork;

// The entries that a frame goes through.
extern "C" {
NOTHING_ENTRY int32_t AisrProcess(void** context);
NOTHING_ENTRY int32_t AisrSetParam(void** context, int32_t tag, const void* data, uint64_t size);
}

/** gNothingProcessed, by a call into this library. */
NOTHING_ENTRY uint64_t nothingProcessed();
