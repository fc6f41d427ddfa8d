// SPDX-License-Identifier: Apache-2.0
#include "media/HeldFrames.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <optional>

#include "common/DeMutex.h"
#include "media/LogTap.h"

namespace displayengine::media::heldframes {
namespace {

DeMutex gMutex;
uint64_t gOfferedId DE_GUARDED_BY(gMutex) = 0; /**< Stream of the offer under way, or 0. */
std::optional<uint64_t> gOfferedDone DE_GUARDED_BY(gMutex); /**< What the worker did of it. */
std::atomic<size_t> gCount{0};
std::atomic<bool> gIsStopped{false};

/** In the order of their offers. Never destroyed: the worker names frames also at the exit. */
Slot& frames() DE_REQUIRES(gMutex) {
    static Slot& theFrames = *new Slot;
    return theFrames;
}

void releaseAll(Slot& ready) {
    if (gIsStopped) {
        // What they refer to may be gone, so they are put aside for good.
        const DeMutexLock lock(gMutex);
        frames().splice(frames().begin(), ready);
    }
    while (!ready.empty()) {
        call(ready.front().release);
        ready.pop_front();
        --gCount;
        logtap::release();
    }
}

}  // namespace

void prepare() {
    const DeMutexLock lock(gMutex);
    frames();
}

void begin(uint64_t id) {
    const DeMutexLock lock(gMutex);
    gOfferedId = id;
    gOfferedDone.reset();
}

void finish(Slot& slot, Outcome outcome) {
    const Frame& frame = slot.front();
    Slot earlier;
    {
        const DeMutexLock lock(gMutex);
        gOfferedId = 0;
        if (outcome == Outcome::kProcessed || outcome == Outcome::kFailed) {
            earlier.swap(frames());
        } else if ((outcome == Outcome::kExpired || outcome == Outcome::kUnknown) &&
                   (frame.idx == kNoIndex || gOfferedDone != frame.idx)) {
            ++gCount;
            logtap::acquire();  // For the message that will name it.
            frames().splice(frames().end(), slot);
            return;
        }
    }
    releaseAll(earlier);
    call(frame.release);
}

void done(uint64_t id, uint64_t idx) {
    Slot ready;
    {
        const DeMutexLock lock(gMutex);
        const auto found = std::find_if(frames().begin(), frames().end(), [&](const Frame& frame) {
            return frame.id == id && frame.idx == idx;
        });
        if (found != frames().end()) {
            ready.splice(ready.end(), frames(), frames().begin(), std::next(found));
        } else if (id == gOfferedId) {
            gOfferedDone = idx;
            ready.swap(frames());
        }
    }
    releaseAll(ready);
}

void stop() {
    gIsStopped = true;
}

size_t count() {
    return gCount;
}

void call(const VideoSession::Release& release) {
    try {
        if (release) {
            release();
        }
    } catch (...) {
        // The frame is handed back all the same.
    }
}

}  // namespace displayengine::media::heldframes
