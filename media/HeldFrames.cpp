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
/** In the order of their offers. Never destroyed: the worker names frames also at the exit. */
Slot& gFrames DE_GUARDED_BY(gMutex) = *new Slot;
uint64_t gOfferedId DE_GUARDED_BY(gMutex) = 0; /**< Stream of the offer under way, or 0. */
std::optional<uint64_t> gOfferedDone DE_GUARDED_BY(gMutex); /**< What the worker did of it. */
std::atomic<size_t> gCount{0};
std::atomic<bool> gIsStopped{false};

void releaseAll(Slot& ready) {
    if (gIsStopped) {
        // What they refer to may be gone, so they are put aside for good.
        const DeMutexLock lock(gMutex);
        gFrames.splice(gFrames.begin(), ready);
    }
    while (!ready.empty()) {
        call(ready.front().release);
        ready.pop_front();
        --gCount;
        logtap::release();
    }
}

}  // namespace

void begin(uint64_t id) {
    const DeMutexLock lock(gMutex);
    gOfferedId = id;
    gOfferedDone.reset();
}

void finish(Slot& slot, Outcome outcome) {
    const Frame& frame = slot.front();
    const bool isDone = outcome == Outcome::kProcessed || outcome == Outcome::kFailed;
    const bool mayBeWritten = outcome == Outcome::kExpired || outcome == Outcome::kUnknown;
    Slot earlier;
    {
        const DeMutexLock lock(gMutex);
        gOfferedId = 0;
        if (mayBeWritten && (frame.idx == kNoIndex || gOfferedDone != frame.idx)) {
            ++gCount;
            logtap::acquire();  // For the message that will name it.
            gFrames.splice(gFrames.end(), slot);
            return;
        }
        if (isDone) {
            earlier.swap(gFrames);
        }
    }
    releaseAll(earlier);
    call(frame.release);
}

void done(uint64_t id, uint64_t idx) {
    Slot ready;
    {
        const DeMutexLock lock(gMutex);
        const auto found = std::find_if(gFrames.begin(), gFrames.end(), [=](const Frame& frame) {
            return frame.id == id && frame.idx == idx;
        });
        if (found != gFrames.end()) {
            ready.splice(ready.end(), gFrames, gFrames.begin(), std::next(found));
        } else if (id == gOfferedId) {
            gOfferedDone = idx;
            ready.swap(gFrames);
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
