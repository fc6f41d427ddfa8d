// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>

#include "media/VideoSession.h"

/**
 * The frames of the process that the processing library may still write. The engine's worker takes
 * frames in the order of their offers, so one that is done tells the same of all earlier ones.
 *
 * Any thread may call, offers come one at a time, and nothing throws. Releases are called without a
 * lock of this library.
 */
namespace displayengine::media::heldframes {

constexpr uint64_t kNoIndex = UINT64_MAX;

struct Frame {
    uint64_t id;
    uint64_t idx; /**< kNoIndex if the engine has given none. */
    VideoSession::Release release;
};
/** A list of one, made before the offer: to hold a frame takes no memory. */
using Slot = std::list<Frame>;

/** A frame of that stream is about to be offered. */
void begin(uint64_t id);
/** Its call has returned: holds the frame, and empties the slot, or releases it. */
void finish(Slot& slot, Outcome outcome);
/** The worker is done with that frame. */
void done(uint64_t id, uint64_t idx);
/** The process exits: what is held from now on stays so. */
void stop();
/** How many there are, with those whose release is being called. */
size_t count();

/** Calls it, unless it is empty, and swallows what it throws. */
void call(const VideoSession::Release& release);

}  // namespace displayengine::media::heldframes
