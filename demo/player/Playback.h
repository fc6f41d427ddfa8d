// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <string>

#include "FrameLog.h"
#include "Gst.h"
#include "Options.h"
#include "tools/support/StopSignal.h"

namespace player {

/**
 * One run of the player: a pipeline that decodes a video, offers its frames at their pace, and, if
 * asked to, writes them to a file. The callbacks of its pads come on GStreamer's threads.
 */
class Playback {
public:
    /** Throws std::runtime_error when GStreamer lacks an element. */
    Playback(const Options& options, const StopSignal& stop, FrameLog& log);
    ~Playback();
    Playback(const Playback&) = delete;
    Playback& operator=(const Playback&) = delete;

    /**
     * Plays until the end of the video, the time given or the stop signal. Throws
     * std::runtime_error for a video that cannot be played, or a file that cannot be written.
     */
    void run();

    /** What is wrong with the video; empty if nothing. After run(). */
    const std::string& damage() const { return mDamage; }

    /** The engine's limits in milliseconds; untouched when it never came up. After run(). */
    void getLimits(RunResult& result) const;

private:
    using Clock = FrameLog::Clock;

    Ref<GstElement> element(const char* name) const;
    void watch(const char* name, const char* pad, GstPadProbeType type,
               GstPadProbeCallback callback);

    // On GStreamer's threads.
    static void onPad(GstElement* decoder, GstPad* pad, gpointer self);
    static void onAllPads(GstElement* decoder, gpointer self);
    static GstPadProbeReturn onDecoded(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstPadProbeReturn onTurn(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstPadProbeReturn onOutcome(GstPad* pad, GstPadProbeInfo* info, gpointer self);
    static GstPadProbeReturn onSegment(GstPad* pad, GstPadProbeInfo* info, gpointer self);

    bool isOver(GstMessage* message);
    void noteEnd();
    void noteError(GstMessage* message);

    const Options& mOptions;
    const StopSignal& mStop;
    FrameLog& mLog;
    Ref<GstElement> mPipeline;

    std::string mMissing; /**< What GStreamer would need to decode the video. */
    std::string mDamage;

    std::atomic<bool> mHasVideo{false};
    std::atomic<GstClockTime> mEnd{0};       /**< Of the latest buffer of any stream. */
    std::atomic<GstClockTime> mFrameTime{0}; /**< Of the latest frame. */
    std::atomic<size_t> mGaps{0};            /**< Places where frames could not be decoded. */
    std::atomic<bool> mIsFirst{true};        /**< The next frame begins the video. */

    // For the thread of the frames.
    Clock::time_point mStart{};
    Clock::time_point mTurn{};
    Ref<GstBuffer> mBefore;
};

}  // namespace player
