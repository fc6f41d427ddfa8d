// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/StrongPointer.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "Comparison.h"
#include "Console.h"
#include "EngineLog.h"
#include "FramePool.h"
#include "Options.h"
#include "Summary.h"
#include "VideoDecoder.h"
#include "client/DisplayEngineManager.h"
#include "tools/support/StopSignal.h"

namespace player {

/**
 * One run of the player: offers the frames of a video to the engine at their pace, and finds out
 * what became of each. All of it happens on the thread that calls `run`.
 */
class Playback {
public:
    Playback(const Options& options, VideoDecoder& decoder, EngineLog& log, FramePool& pool,
             const StopSignal& stop);

    /**
     * Brings the engine up, if a service is there. Throws std::runtime_error when services cannot
     * even be looked up; that there is none is no error.
     */
    void connect();

    /**
     * Plays until the end of the video, the time given or the stop signal, once connected. Throws
     * VideoError for a picture that cannot be converted.
     */
    RunResult run();

    /** The frame that enhancement changed most. */
    const Comparison& comparison() const { return mComparison; }

private:
    using Clock = std::chrono::steady_clock;

    void startVideo();
    bool nextPicture();
    bool waitForTurn();
    void playFrame(std::unique_ptr<Frame> frame);
    void skip();
    void offer(std::unique_ptr<Frame> frame);
    void settle(std::unique_ptr<Frame> frame, uint64_t engineIndex, Outcome outcome);
    void tellChange(const std::string& whyNot);
    void tellTrouble(Outcome outcome);
    void tellTruncation();
    void showProgress();

    const Options& mOptions;
    VideoDecoder& mDecoder;
    EngineLog& mLog;
    FramePool& mPool;
    const StopSignal& mStop;

    android::sp<DisplayEngineManager> mManager;
    const uint64_t mStreamId;
    bool mIsSupported = false;
    bool mIsTruncationTold = false;
    int mWidth = 0;
    int mHeight = 0;

    Clock::duration mInterval{}; /**< Zero for as fast as possible. */
    Clock::time_point mStart;
    Clock::time_point mDue;

    Console mConsole;
    Comparison mComparison;
    RunResult mResult;
    std::string mWhyNot; /**< Why enhancement is not needed, as last printed; or empty. */
};

}  // namespace player
