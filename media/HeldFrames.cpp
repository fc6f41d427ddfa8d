// SPDX-License-Identifier: Apache-2.0
#include "media/HeldFrames.h"

#include <algorithm>
#include <atomic>
#include <iterator>

#include "common/DeMutex.h"
#include "media/LogTap.h"

namespace displayengine::media::heldframes {
namespace {

DeMutex gMutex;
/** In the order of their offers. Never destroyed: the worker names frames also at the exit. */
Slot& gFrames DE_GUARDED_BY(gMutex) = *new Slot;
// What the worker has named last of the frames that are not held, since an offer has ended; 0 for
// none. If it is the frame of the offer under way, all earlier ones are done as well.
uint64_t gNamedId DE_GUARDED_BY(gMutex) = 0;
uint64_t gNamedIdx DE_GUARDED_BY(gMutex) = 0;
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

void finish(Slot& slot, Outcome outcome) {
    const Frame& frame = slot.front();
    Slot earlier;
    {
        const DeMutexLock lock(gMutex);
        const bool isNamed = gNamedId == frame.id && gNamedIdx == frame.idx;
        gNamedId = 0;
        if (isNamed || outcome == Outcome::kProcessed || outcome == Outcome::kFailed) {
            earlier.swap(gFrames);
        } else if (outcome == Outcome::kExpired || outcome == Outcome::kUnknown) {
            ++gCount;
            logtap::acquire();  // For the message that will name it.
            gFrames.splice(gFrames.end(), slot);
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
        const auto found = std::find_if(gFrames.begin(), gFrames.end(), [=](const Frame& frame) {
            return frame.id == id && frame.idx == idx;
        });
        if (found != gFrames.end()) {
            ready.splice(ready.end(), gFrames, gFrames.begin(), std::next(found));
        } else {
            gNamedId = id;
            gNamedIdx = idx;
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
