// SPDX-License-Identifier: Apache-2.0
#include "gstreamer/Enhancement.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "gstreamer/EngineLog.h"

namespace displayengine::gst {
namespace {

const Enhancement::State kNoStream{"no-stream", "there is no video"};
/** A measured rate is announced again when it has changed by this part of it. */
constexpr double kRateTolerance = 0.1;

/** What is said on the bus of an outcome or a reason: warnings of what is missing, infos. */
const struct Complaint {
    const char* about;
    GstMessageType type;
    GQuark (*domain)();
    gint code;
    const char* text;
} kComplaints[] = {
    {media::reasonName(media::Reason::kNoService), GST_MESSAGE_WARNING, gst_resource_error_quark,
     GST_RESOURCE_ERROR_NOT_FOUND, "No display engine service; the video passes unenhanced."},
    {media::reasonName(media::Reason::kNotStarted), GST_MESSAGE_WARNING, gst_resource_error_quark,
     GST_RESOURCE_ERROR_NOT_FOUND,
     "The display engine could not be started; the video passes unenhanced."},
    {media::outcomeName(media::Outcome::kRefusedNotReady), GST_MESSAGE_WARNING,
     gst_resource_error_quark, GST_RESOURCE_ERROR_NOT_FOUND,
     "No processing library that works; the video passes unenhanced."},
    {media::outcomeName(media::Outcome::kRefusedUnhealthy), GST_MESSAGE_INFO, gst_core_error_quark,
     GST_CORE_ERROR_CLOCK,
     "The frames come faster than the display engine's health monitor allows and are not "
     "enhanced; pace the pipeline with sync=true at its sink, or with \"identity sync=true\" "
     "before displayenhance."},
    {media::outcomeName(media::Outcome::kRefusedOverload), GST_MESSAGE_INFO, gst_stream_error_quark,
     GST_STREAM_ERROR_FAILED,
     "Too many frames took too long; the display engine enhances no more frames of this stream."},
};

}  // namespace

Enhancement::Enhancement(GstBaseTransform* element, GParamSpec* active, GParamSpec* inactiveReason)
    : mElement(element),
      mActiveProperty(active),
      mInactiveReasonProperty(inactiveReason),
      mState(kNoStream) {
    gst_video_info_init(&mInfo);
}

void Enhancement::start() {
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mStatistics = Statistics();
    }
    mMeter.clear();
    mIsWarned = false;
}

void Enhancement::stop() {
    closeSession();
    mPool.reset();
    setState(kNoStream);
}

bool Enhancement::setFormat(const GstVideoInfo& info) {
    if (gst_video_info_is_equal(&info, &mInfo) != FALSE && mPool != nullptr) {
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
    mPool = makePool(info);
    return mPool != nullptr;
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
    account(outcome, input);
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
        mIsTold.clear();
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
        gst_element_post_message(GST_ELEMENT(mElement),
                                 gst_message_new_latency(GST_OBJECT(mElement)));
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
    GstStructure* const structure =
        gst_structure_new("displayenhance", "active", G_TYPE_BOOLEAN,
                          static_cast<gboolean>(state.reason.empty()), "reason", G_TYPE_STRING,
                          state.reason.c_str(), "text", G_TYPE_STRING, state.text.c_str(), nullptr);
    gst_element_post_message(GST_ELEMENT(mElement),
                             gst_message_new_element(GST_OBJECT(mElement), structure));
}

GstStructure* Enhancement::statistics() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mStatistics.structure(*mHeld);
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
    account(frame, input);
    if (frame.outcome == media::Outcome::kProcessed && copy->isHandedBack()) {
        GstBuffer* const output = copy->takeBuffer();
        GST_BASE_TRANSFORM_GET_CLASS(mElement)->copy_metadata(mElement, input, output);
        gst_buffer_unref(input);
        return markOutcome(output, frame);
    }
    return markOutcome(input, frame);
}

void Enhancement::account(const FrameOutcome& frame, GstBuffer* input) {
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mStatistics.add(frame);
    }
    GST_LOG_OBJECT(mElement, "%s after %g ms %s", media::outcomeName(frame.outcome),
                   frame.milliseconds, frame.text.c_str());
    if (frame.outcome == media::Outcome::kExpired) {
        postExpired(frame, input);
    }
    complain(frame);
}

/** Of something missing once after a stream's start, of the rest once in a stream. */
void Enhancement::complain(const FrameOutcome& frame) {
    const std::string_view about =
        frame.reason.empty() ? media::outcomeName(frame.outcome) : frame.reason.c_str();
    const auto* const complaint =
        std::find_if(std::begin(kComplaints), std::end(kComplaints),
                     [about](const Complaint& it) { return it.about == about; });
    if (complaint == std::end(kComplaints)) {
        return;
    }
    bool& isMade = complaint->type == GST_MESSAGE_WARNING ? mIsWarned : mIsTold[complaint->about];
    if (!std::exchange(isMade, true)) {
        gst_element_message_full(GST_ELEMENT(mElement), complaint->type, complaint->domain(),
                                 complaint->code, g_strdup(complaint->text),
                                 g_strdup(frame.text.c_str()), __FILE__, __func__, __LINE__);
    }
}

void Enhancement::postExpired(const FrameOutcome& frame, GstBuffer* buffer) {
    const GstSegment& segment = mElement->segment;
    const GstClockTime timestamp = GST_BUFFER_PTS(buffer);
    guint64 running = GST_CLOCK_TIME_NONE;
    guint64 stream = GST_CLOCK_TIME_NONE;
    if (segment.format == GST_FORMAT_TIME) {
        running = gst_segment_to_running_time(&segment, GST_FORMAT_TIME, timestamp);
        stream = gst_segment_to_stream_time(&segment, GST_FORMAT_TIME, timestamp);
    }
    GstMessage* const message = gst_message_new_qos(GST_OBJECT(mElement), FALSE, running, stream,
                                                    timestamp, GST_BUFFER_DURATION(buffer));
    const double late = frame.milliseconds * static_cast<double>(GST_MSECOND);
    gst_message_set_qos_values(message, static_cast<gint64>(late), 1.0, 0);
    gst_message_set_qos_stats(message, GST_FORMAT_BUFFERS,
                              mStatistics.count(media::Outcome::kProcessed),
                              mStatistics.count(media::Outcome::kExpired));
    gst_element_post_message(GST_ELEMENT(mElement), message);
}

}  // namespace displayengine::gst
