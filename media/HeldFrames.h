// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <list>
#include <optional>

#include "common/DeMutex.h"
#include "media/VideoSession.h"

namespace displayengine::media {

/**
 * The frames of the process that the processing library may still write. The engine's worker takes
 * frames in the order of their offers, so one that is done tells the same of all earlier ones.
 *
 * Any thread may call any operation, offers come one at a time, and nothing throws. Releases are
 * called without a lock of this library.
 */
class HeldFrames {
public:
    static constexpr uint64_t kNoIndex = std::numeric_limits<uint64_t>::max();

    struct Held {
        uint64_t id;
        uint64_t idx; /**< kNoIndex if the engine has given none. */
        VideoSession::Release release;
    };
    /** A list of one, made before the offer: to hold a frame takes no memory. */
    using Slot = std::list<Held>;

    /** Never destroyed: the worker names frames while the process exits. The first call may throw.
     */
    static HeldFrames& get();

    /** A frame of that stream is about to be offered. */
    void begin(uint64_t id) DE_EXCLUDES(mMutex);
    /** Its call has returned, and nothing touches its planes; `isLast` if it ran on the worker. */
    void handBack(Slot& slot, bool isLast) DE_EXCLUDES(mMutex);
    /** Its call has returned, and the library may still have it; empties the slot. */
    void hold(Slot& slot) DE_EXCLUDES(mMutex);
    /** The worker is done with that frame. */
    void done(uint64_t id, uint64_t idx) DE_EXCLUDES(mMutex);
    /** The process exits: what is held from now on stays so. */
    void stop() { mIsStopped = true; }

    size_t count() const { return mCount; }

    /** Calls it, unless it is empty, and swallows what it throws. */
    static void call(const VideoSession::Release& release);

private:
    HeldFrames() = default;

    void releaseAll(Slot& frames);

    DeMutex mMutex;
    Slot mFrames DE_GUARDED_BY(mMutex);            /**< In the order of their offers. */
    uint64_t mOfferedId DE_GUARDED_BY(mMutex) = 0; /**< Stream of the offer under way, or 0. */
    std::optional<uint64_t> mOfferedDone DE_GUARDED_BY(mMutex); /**< What the worker did of it. */
    std::atomic<size_t> mCount{0}; /**< Also those whose release is being called. */
    std::atomic<bool> mIsStopped{false};
};

}  // namespace displayengine::media
