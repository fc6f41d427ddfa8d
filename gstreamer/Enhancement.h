// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gst/base/gstbasetransform.h>
#include <gst/video/video.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "gstreamer/FrameOutcome.h"
#include "gstreamer/RateMeter.h"
#include "gstreamer/WorkingFrame.h"
#include "media/VideoSession.h"

namespace displayengine::gst {

/**
 * The work of one element: its session, the frames, and what it tells of them.
 *
 * The processing library works on a copy of the frame. Only a copy that was processed and handed
 * back takes the frame's place; otherwise the untouched frame goes on, and the copy stays until
 * nothing writes it any more.
 *
 * The streaming thread calls everything that is not said to be for any thread, holding no lock of
 * the element's; start() and stop() come while nothing streams.
 */
class Enhancement {
public:
    /** What the element's `active` and `inactive-reason` show. */
    struct State {
        std::string reason; /**< A word; empty while frames are offered. */
        std::string text;   /**< The same in words. */
        bool operator==(const State& other) const {
            return reason == other.reason && text == other.text;
        }
    };

    /** Both properties belong to the element, which owns this. */
    Enhancement(GstBaseTransform* element, GParamSpec* active, GParamSpec* inactiveReason);

    void start();
    /** Closes the session. */
    void stop();
    /** The frames have this format from now on; opens the session. False if none can be taken. */
    bool setFormat(const GstVideoInfo& info);
    /** Another stream begins, or the same at another place. A new one may be warned of again. */
    void beginStream(bool isNew);
    /** Takes a frame and returns the one to push, marked with its outcome. */
    GstBuffer* process(GstBuffer* input);

    // For any thread.

    void setEnabled(bool isEnabled) { mIsEnabled = isEnabled; }
    bool isEnabled() const { return mIsEnabled; }
    State state() const;
    /** Both structures are the caller's; none before the limits are known. */
    GstStructure* statistics() const;
    GstStructure* limits() const;
    GstClockTime latency() const { return mLatency; }

private:
    void bringUpToDate();
    void openSession();
    void closeSession();
    void setAnnouncedRate();
    void setLatency(GstClockTime latency);
    State currentState() const;
    void setState(const State& state);
    GstBuffer* offer(GstBuffer* input);
    void account(const FrameOutcome& frame, GstBuffer* input);
    void complain(const FrameOutcome& frame);
    void postExpired(const FrameOutcome& frame, GstBuffer* buffer);

    GstBaseTransform* const mElement;
    GParamSpec* const mActiveProperty;
    GParamSpec* const mInactiveReasonProperty;

    std::atomic<bool> mIsEnabled{true};
    std::atomic<GstClockTime> mLatency{0};
    const HeldCount mHeld = std::make_shared<std::atomic<uint64_t>>(0);

    mutable std::mutex mMutex;
    Statistics mStatistics; /**< Written by the streaming thread only, with mMutex held. */
    State mState;           /**< Guarded by mMutex. */
    std::optional<media::Limits> mLimits; /**< Guarded by mMutex. */

    // Of the streaming thread.
    std::unique_ptr<media::VideoSession> mSession;
    std::string mWhyNoSession;
    GstVideoInfo mInfo;
    WorkingPool mPool;
    RateMeter mMeter;
    double mAnnouncedRate = 0; /**< 0 for none yet. */
    bool mMayOpen = false;     /**< Another attempt at a session is due. */
    bool mIsNewStream = false;
    bool mIsWarned = false; /**< Of something missing, since the stream's start. */
    std::map<std::string_view, bool> mIsTold; /**< Since the stream's begin, by outcome. */
};

}  // namespace displayengine::gst
