// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>

namespace player {

/** What became of one frame of the video. */
enum class Outcome {
    kEnhanced,         /**< The processing library changed the luma plane. */
    kUnchanged,        /**< Processed, and the plane is as it was. */
    kFailed,           /**< The processing library reported a failure. */
    kExpired,          /**< Not done within the abort limit; the library may still write it. */
    kRefusedOverload,  /**< Too many slow frames of this stream. */
    kRefusedUnhealthy, /**< Offered faster than the health monitor allows. */
    kRefusedBusy,      /**< An earlier frame was still queued. */
    kRefusedNotReady,  /**< The processing library or the worker could not be started. */
    kRefusedInvalid,   /**< The engine did not accept the frame's description. */
    kRefusedUnknown,   /**< The plane is unchanged and the engine logged nothing. */
    kNotNeeded,        /**< Not offered: enhancement was not wanted. */
};

constexpr size_t kOutcomes = static_cast<size_t>(Outcome::kNotNeeded) + 1;

/** A number of frames for each outcome, in the order of the enumeration. */
using OutcomeCounts = std::array<size_t, kOutcomes>;

/** Name of an outcome in frames.csv. */
const char* outcomeKey(Outcome outcome);

/** Name of an outcome for a reader. */
const char* outcomeText(Outcome outcome);

/** Whether the frame got as far as the worker, so that the call's time says something about it. */
inline bool reachedWorker(Outcome outcome) {
    return outcome <= Outcome::kExpired;
}

inline bool isRefused(Outcome outcome) {
    return outcome >= Outcome::kRefusedOverload && outcome <= Outcome::kRefusedUnknown;
}

}  // namespace player
