// SPDX-License-Identifier: Apache-2.0
#include "media/HeldFrames.h"

#include <algorithm>
#include <iterator>

#include "media/LogTap.h"

namespace displayengine::media {

HeldFrames& HeldFrames::get() {
    static HeldFrames& theFrames = *new HeldFrames;
    return theFrames;
}

void HeldFrames::begin(uint64_t id) {
    const DeMutexLock lock(mMutex);
    mOfferedId = id;
    mOfferedDone.reset();
}

void HeldFrames::handBack(Slot& slot, bool isLast) {
    Slot earlier;
    {
        const DeMutexLock lock(mMutex);
        mOfferedId = 0;
        if (isLast) {
            earlier.swap(mFrames);
        }
    }
    releaseAll(earlier);
    call(slot.front().release);
    slot.front().release = nullptr;
}

void HeldFrames::hold(Slot& slot) {
    Slot ready;
    {
        const DeMutexLock lock(mMutex);
        const Held& frame = slot.front();
        const bool isDone = mOfferedDone == frame.idx && frame.idx != kNoIndex;
        mOfferedId = 0;
        ++mCount;
        logtap::acquire();  // For the message that will name it.
        (isDone ? ready : mFrames).splice(isDone ? ready.end() : mFrames.end(), slot);
    }
    releaseAll(ready);
}

void HeldFrames::done(uint64_t id, uint64_t idx) {
    Slot ready;
    {
        const DeMutexLock lock(mMutex);
        const auto found = std::find_if(mFrames.begin(), mFrames.end(), [&](const Held& frame) {
            return frame.id == id && frame.idx == idx;
        });
        if (found != mFrames.end()) {
            ready.splice(ready.end(), mFrames, mFrames.begin(), std::next(found));
        } else if (id == mOfferedId) {
            mOfferedDone = idx;
            ready.swap(mFrames);
        }
    }
    releaseAll(ready);
}

void HeldFrames::call(const VideoSession::Release& release) {
    try {
        if (release) {
            release();
        }
    } catch (...) {
        // The frame is handed back all the same.
    }
}

void HeldFrames::releaseAll(Slot& frames) {
    if (frames.empty()) {
        return;
    }
    if (mIsStopped) {
        // What they refer to may be gone; put aside for good.
        const DeMutexLock lock(mMutex);
        mFrames.splice(mFrames.begin(), frames);
        return;
    }
    while (!frames.empty()) {
        call(frames.front().release);
        frames.pop_front();
        --mCount;
        logtap::release();
    }
}

}  // namespace displayengine::media
