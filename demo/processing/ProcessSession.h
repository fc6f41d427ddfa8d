// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <vector>

#include "LumaSharpener.h"
#include "common/AisrProcess.h"
#include "common/DeMutex.h"

/**
 * What the processing library keeps between its init and its deinit entry.
 *
 * The client submits and processes on one thread at a time; `cancel` may come on another thread at
 * any moment in between, also before the frame that it names was submitted.
 */
class ProcessSession {
public:
    /** `frameTime` is the least time that a frame takes; 0 for as fast as the machine can. */
    explicit ProcessSession(std::chrono::milliseconds frameTime) : mFrameTime(frameTime) {}

    /**
     * Takes over the frames of a list for the next `process`; the list is not kept. A list that is
     * broken, or a frame with impossible planes or geometry, gives AISR_ERR_BUF_COPY and leaves
     * nothing submitted.
     */
    int32_t submit(const AisrBufferList& list);

    /**
     * Sharpens the submitted frames in place, and forgets them. AISR_ERR_TIMEOUT when a frame was
     * cancelled, before or meanwhile: the rows done by then stay sharpened. AISR_ERR_BUF_COPY when
     * nothing is submitted.
     */
    int32_t process();

    /** Abandons a frame: the one at work stops before its next row, a later one never starts. */
    void cancel(const AisrBuffer& frame);

    /** Forgets what is submitted. */
    void clean();

private:
    int32_t processFrame(const AisrBuffer& frame);
    bool pace(std::chrono::steady_clock::time_point start, int row, int height);

    const std::chrono::milliseconds mFrameTime;
    LumaSharpener mSharpener;
    std::vector<AisrBuffer> mSubmitted;

    DeMutex mMutex;
    std::condition_variable mCancelCond;
    AisrBuffer mAtWork DE_GUARDED_BY(mMutex){}; /**< Id 0: none. */
    // The last frame that was named and is not yet known; id 0: none.
    AisrBuffer mCancelled DE_GUARDED_BY(mMutex){};
    std::atomic<bool> mStop{false}; /**< Changes under the mutex; read without it between rows. */
};
