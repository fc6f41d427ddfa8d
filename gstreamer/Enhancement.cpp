// SPDX-License-Identifier: Apache-2.0
#include "gstreamer/Enhancement.h"

#include <cmath>
#include <utility>

#include "gstreamer/BusMessages.h"
#include "gstreamer/EngineLog.h"

namespace displayengine::gst {
namespace {

const Enhancement::State kNoStream{"no-stream", "there is no video"};
/** A measured rate is announced again when it has changed by this part of it. */
constexpr double kRateTolerance = 0.1;

}  // namespace

Enhancement::Enhancement(GstBaseTransform* element, GParamSpec* active, GParamSpec* inactiveReason)
    : mElement(element),
      mActiveProperty(active),
      mInactiveReasonProperty(inactiveReason),
      mState(kNoStream) {
    gst_video_info_init(&mInfo);
}

void Enhancement::start() {
    mStatistics.clear();
    mMeter.clear();
    mIsWarned = false;
}

void Enhancement::stop() {
    closeSession();
    mPool.clear();
    setState(kNoStream);
}

bool Enhancement::setFormat(const GstVideoInfo& info) {
    if (gst_video_info_is_equal(&info, &mInfo) != FALSE && mPool.get() != nullptr) {
        return true;  // Only the neighbours have changed.
    }
    mInfo = info;
    mAnnouncedRate =
        info.fps_n > 0 && info.fps_d > 0 ? static_cast<double>(info.fps_n) / info.fps_d : 0;
    if (mSession != nullptr) {
        mSession->setSize(info.width, info.height);
        mSession->setFrameRate(mAnnouncedRate);
    }
    beginStream(false);
    bringUpToDate();
    return mPool.configure(info);
}

void Enhancement::beginStream(bool isNew) {
    mIsNewStream = true;
    mMayOpen = true;
    mIsWarned = mIsWarned && !isNew;
    mMeter.clear();
}

GstBuffer* Enhancement::process(GstBuffer* input) {
    mMeter.add(GST_BUFFER_PTS(input));
    setAnnouncedRate();
    bringUpToDate();
    const State state = currentState();
    setState(state);
    if (state.reason.empty()) {
        return offer(input);
    }
    const FrameOutcome outcome{media::Outcome::kNotOffered, state.reason, state.text, 0};
    mStatistics.add(outcome);
    tell(outcome, input);
    return markOutcome(input, outcome);
}

void Enhancement::bringUpToDate() {
    if (!mIsEnabled) {
        closeSession();
        mMayOpen = true;
        return;
    }
    if (mSession == nullptr && mMayOpen) {
        openSession();
    } else if (mSession != nullptr && mIsNewStream) {
        mSession->restartStream();
    }
    mMayOpen = false;
    if (std::exchange(mIsNewStream, false)) {
        mIsTold.fill(false);
    }
}

void Enhancement::openSession() {
    media::VideoSession::Options options;
    options.width = mInfo.width;
    options.height = mInfo.height;
    options.fps = mAnnouncedRate;
    options.nextLogger = logToCategory;
    mSession = media::VideoSession::open(options, &mWhyNoSession);
    if (mSession == nullptr) {
        GST_INFO_OBJECT(mElement, "no session: %s", mWhyNoSession.c_str());
        return;
    }
    const std::optional<media::Limits> limits = mSession->limits();
    if (limits) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mLimits = limits;
    }
    setLatency(limits ? static_cast<GstClockTime>(limits->abortMs) * GST_MSECOND : 0);
}

void Enhancement::closeSession() {
    if (mSession != nullptr) {
        mSession.reset();
        setLatency(0);
    }
}

void Enhancement::setAnnouncedRate() {
    if (mInfo.fps_n > 0) {
        return;
    }
    const std::optional<double> rate = mMeter.rate();
    if (rate && std::abs(*rate - mAnnouncedRate) > kRateTolerance * mAnnouncedRate) {
        mAnnouncedRate = *rate;
        if (mSession != nullptr) {
            mSession->setFrameRate(mAnnouncedRate);
        }
    }
}

void Enhancement::setLatency(GstClockTime latency) {
    if (mLatency.exchange(latency) != latency) {
        postLatencyChanged(GST_ELEMENT(mElement));
    }
}

Enhancement::State Enhancement::currentState() const {
    if (!mIsEnabled) {
        return {"disabled", "switched off by the property \"enable\""};
    }
    if (mSession == nullptr) {
        return {"session-taken", mWhyNoSession};
    }
    if (mSession->isWanted()) {
        return {};
    }
    const media::Wanted wanted = mSession->wanted();
    // Between the two calls it may have become wanted.
    return wanted ? State() : State{media::reasonName(wanted.reason), wanted.text};
}

Enhancement::State Enhancement::state() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mState;
}

void Enhancement::setState(const State& state) {
    State before;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (state == mState) {
            return;
        }
        before = std::exchange(mState, state);
    }
    GObject* const object = G_OBJECT(mElement);
    if (state.reason != before.reason) {
        g_object_notify_by_pspec(object, mInactiveReasonProperty);
    }
    if (state.reason.empty() != before.reason.empty()) {
        g_object_notify_by_pspec(object, mActiveProperty);
    }
    GST_INFO_OBJECT(mElement, "%s", state.reason.empty() ? "active" : state.text.c_str());
    postActive(GST_ELEMENT(mElement), state.reason, state.text);
}

GstStructure* Enhancement::limits() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    if (!mLimits) {
        return nullptr;
    }
    return gst_structure_new("displayenhance-limits", "min-width", G_TYPE_INT, mLimits->minWidth,
                             "min-height", G_TYPE_INT, mLimits->minHeight, "max-width", G_TYPE_INT,
                             mLimits->maxWidth, "max-height", G_TYPE_INT, mLimits->maxHeight,
                             "max-fps", G_TYPE_INT, mLimits->maxFps, "monitor-fps", G_TYPE_INT,
                             mLimits->monitorFps, "overload-ms", G_TYPE_INT, mLimits->overloadMs,
                             "abort-ms", G_TYPE_INT, mLimits->abortMs, nullptr);
}

GstBuffer* Enhancement::offer(GstBuffer* input) {
    std::shared_ptr<WorkingFrame> copy = WorkingFrame::copyOf(input, mInfo, mPool.get(), mHeld);
    FrameOutcome frame;
    if (copy == nullptr) {
        frame.reason = "unreadable";
        frame.text = "the buffer does not hold a frame of its format";
    } else {
        // The engine's side gives its share up in the call: it may keep the callback for longer.
        const media::Result result = mSession->offer(copy->planes(), [share = copy]() mutable {
            share->handBack();
            share.reset();
        });
        frame.outcome = result.outcome;
        frame.text = result.text;
        frame.milliseconds = static_cast<double>(result.milliseconds);
    }
    mStatistics.add(frame);
    tell(frame, input);
    if (frame.outcome == media::Outcome::kProcessed && copy->isHandedBack()) {
        GstBuffer* const output = copy->takeBuffer();
        GST_BASE_TRANSFORM_GET_CLASS(mElement)->copy_metadata(mElement, input, output);
        gst_buffer_unref(input);
        return markOutcome(output, frame);
    }
    return markOutcome(input, frame);
}

void Enhancement::tell(const FrameOutcome& frame, GstBuffer* input) {
    GST_LOG_OBJECT(mElement, "%s after %g ms %s", media::outcomeName(frame.outcome),
                   frame.milliseconds, frame.text.c_str());
    if (frame.outcome == media::Outcome::kExpired) {
        postExpired(mElement, input, frame.milliseconds,
                    mStatistics.count(media::Outcome::kProcessed),
                    mStatistics.count(media::Outcome::kExpired));
    }
    if (frame.reason == media::reasonName(media::Reason::kNoService)) {
        warnOfMissing("No display engine service; the video passes unenhanced.", frame.text);
    } else if (frame.reason == media::reasonName(media::Reason::kNotStarted)) {
        warnOfMissing("The display engine could not be started; the video passes unenhanced.",
                      frame.text);
    } else if (frame.outcome == media::Outcome::kRefusedNotReady) {
        warnOfMissing("No processing library that works; the video passes unenhanced.", frame.text);
    }
    if (std::exchange(mIsTold[static_cast<size_t>(frame.outcome)], true)) {
        return;
    }
    if (frame.outcome == media::Outcome::kRefusedUnhealthy) {
        postTooFast(GST_ELEMENT(mElement), frame.text);
    } else if (frame.outcome == media::Outcome::kRefusedOverload) {
        postOverload(GST_ELEMENT(mElement), frame.text);
    }
}

void Enhancement::warnOfMissing(const char* text, const std::string& details) {
    if (!std::exchange(mIsWarned, true)) {
        postMissing(GST_ELEMENT(mElement), text, details);
    }
}

}  // namespace displayengine::gst
