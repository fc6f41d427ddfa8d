// SPDX-License-Identifier: Apache-2.0
#include "media/VideoSession.h"

#include <binder/ProcessState.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <utility>

#include "client/DisplayEngineManager.h"
#include "common/DeMutex.h"
#include "media/EngineNotes.h"
#include "media/HeldFrames.h"
#include "media/LogTap.h"

namespace displayengine::media {
namespace {

std::atomic<bool> gIsOpen{false};
std::atomic<uint32_t> gStreamCount{0};

/** Streams of the process count up, and no other process has the same. */
uint64_t nextStreamId() {
    return uint64_t{static_cast<uint32_t>(getpid())} << 32 | ++gStreamCount;
}

/** Runs what may only lack the memory for a text, or for a session. */
template <typename BODY>
void noThrow(BODY body) {
    try {
        body();
    } catch (...) {
        // What `body` has set so far stands.
    }
}

/** Built after the engine, so that it ends before it: what a release uses may end next. */
struct ExitMark {
    ~ExitMark() { HeldFrames::get().stop(); }
};

/** The outcomes after which the worker is done with the frame, and so with all before it. */
bool isCompleted(Outcome outcome) {
    return outcome == Outcome::kProcessed || outcome == Outcome::kFailed;
}

bool isHeld(Outcome outcome) {
    return outcome == Outcome::kExpired || outcome == Outcome::kUnknown;
}

}  // namespace

const char* outcomeName(Outcome outcome) {
    constexpr const char* kNames[kOutcomes] = {
        "processed",         "failed",       "expired",           "refused-overload",
        "refused-unhealthy", "refused-busy", "refused-not-ready", "refused-invalid",
        "not-offered",       "unknown"};
    return kNames[std::min(static_cast<size_t>(outcome), kOutcomes - 1)];
}

const char* reasonName(Reason reason) {
    constexpr const char* kNames[kReasons] = {"none",        "switched-off", "size",
                                              "rate",        "no-service",   "not-supported",
                                              "not-started", "closed"};
    return kNames[std::min(static_cast<size_t>(reason), kReasons - 1)];
}

class VideoSession::Impl {
public:
    explicit Impl(const Options& options);
    ~Impl() { close(); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void setSize(int32_t width, int32_t height);
    void setFrameRate(double fps);
    void restartStream() DE_EXCLUDES(mOfferMutex);
    /** The reason first: it stays when there is no memory for the text. */
    void explain(Wanted& wanted) const;
    bool isWanted() const { return !mIsClosed && mManager->needVideoEnhance(); }
    Result offer(const Frame& frame, Release release) DE_EXCLUDES(mOfferMutex);
    void close() DE_EXCLUDES(mOfferMutex);

private:
    bool prepare(Release& release, Result& result) DE_REQUIRES(mOfferMutex);
    void judgeSilence(Call& call) const;

    const android::sp<DisplayEngineManager> mManager;
    std::atomic<bool> mIsClosed{false};
    /** Held during an offer: they have to reach the engine in the order of their streams. */
    DeMutex mOfferMutex;
    uint64_t mStreamId DE_GUARDED_BY(mOfferMutex) = nextStreamId();
    HeldFrames::Slot mSlot DE_GUARDED_BY(mOfferMutex); /**< For the next frame; may be empty. */
};

VideoSession::Impl::Impl(const Options& options) : mManager(new DisplayEngineManager) {
    HeldFrames::get();
    EngineNotes::get().forgetConditions();
    logtap::install(options.nextLogger,
                    [](const logtap::Message& message) { EngineNotes::get().note(message); });
    logtap::acquire();
    android::ProcessState::self()->startThreadPool();
    mManager->onVideoAppStart();
    static const ExitMark exitMark;
    mManager->onVideoStart();
    setSize(options.width, options.height);
    setFrameRate(options.fps);
}

// The engine says nothing of a value that it has already, and its verdict may come from before the
// session. Another value in between makes it speak.

void VideoSession::Impl::setSize(int32_t width, int32_t height) {
    if (mIsClosed || width < 1 || height < 1) {
        return;
    }
    logtap::keepOn();
    mManager->setVideoRect(width, height);
    if (!EngineNotes::get().isKnown(EngineNotes::kSizeCondition)) {
        mManager->setVideoRect(width == 1 ? 2 : width - 1, height);
        mManager->setVideoRect(width, height);
    }
}

void VideoSession::Impl::setFrameRate(double fps) {
    constexpr double kHighest = 1'000'000;
    if (mIsClosed || !(fps > 0)) {
        return;
    }
    logtap::keepOn();
    const int rate = std::max(1, static_cast<int>(std::lround(std::min(fps, kHighest))));
    mManager->setVideoFrameRate(rate);
    if (!EngineNotes::get().isKnown(EngineNotes::kRateCondition)) {
        mManager->setVideoFrameRate(rate + 1);
        mManager->setVideoFrameRate(rate);
    }
}

void VideoSession::Impl::restartStream() {
    const DeMutexLock lock(mOfferMutex);
    mStreamId = nextStreamId();
}

void VideoSession::Impl::explain(Wanted& wanted) const {
    const EngineNotes& notes = EngineNotes::get();
    if (mIsClosed) {
        wanted.reason = Reason::kClosed;
        wanted.text = "the session is closed";
    } else if (mManager->needVideoEnhance()) {
        wanted.reason = Reason::kNone;
    } else if (!mManager->isVideoEngineSupported()) {
        notes.explainBringUp(wanted);
    } else if (!mManager->getVideoAppConfig()) {
        wanted.reason = Reason::kSwitchedOff;
        wanted.text = "enhancement is switched off for this process";
    } else {
        notes.explainConditions(wanted);
    }
}

/** Whether the frame is to be offered; otherwise says why not. */
bool VideoSession::Impl::prepare(Release& release, Result& result) {
    result.outcome = Outcome::kNotOffered;
    if (!isWanted()) {
        noThrow([&] {
            Wanted wanted;
            explain(wanted);
            result.text = std::move(wanted.text);
        });
        return false;
    }
    try {
        mSlot.resize(1);
    } catch (...) {
        result.text = "out of memory";  // Short enough to need none.
        return false;
    }
    mSlot.front() = {mStreamId, HeldFrames::kNoIndex, std::move(release)};
    return true;
}

/** A call that returned without a message: refused between two verdicts of the monitor, or lost. */
void VideoSession::Impl::judgeSilence(Call& call) const {
    if (!logtap::isInPlace()) {
        call.text = "another logger has taken the place of the session's";
    } else if (const auto monitor = EngineNotes::get().unhealthy(); monitor && logtap::isOn()) {
        call.verdict = Outcome::kRefusedUnhealthy;
        call.text = *monitor;
    } else {
        call.text = "the engine said nothing";
    }
}

Result VideoSession::Impl::offer(const Frame& frame, Release release) {
    using Clock = std::chrono::steady_clock;
    DeMutexLock lock(mOfferMutex);
    Result result;
    if (!prepare(release, result)) {
        lock.unlock();
        HeldFrames::call(release);
        return result;
    }
    HeldFrames& held = HeldFrames::get();
    Aisr::BufferInfo info{mStreamId,           frame.y,      frame.uv,
                          frame.width,         frame.height, frame.stride,
                          HeldFrames::kNoIndex};
    Call call;
    held.begin(mStreamId);
    logtap::keepOn();
    EngineNotes::setCall(&call);
    const Clock::time_point start = Clock::now();
    mManager->doVideoEnhance(info);
    const std::chrono::duration<float, std::milli> elapsed = Clock::now() - start;
    EngineNotes::setCall(nullptr);

    if (!call.verdict) {
        noThrow([&] { judgeSilence(call); });
    }
    result.outcome = call.verdict.value_or(Outcome::kUnknown);
    result.milliseconds = elapsed.count();
    result.text = std::move(call.text);
    mSlot.front().idx = info.idx;
    if (isHeld(result.outcome)) {
        held.hold(mSlot);
    } else {
        held.handBack(mSlot, isCompleted(result.outcome));
    }
    return result;
}

void VideoSession::Impl::close() {
    const DeMutexLock lock(mOfferMutex);
    if (mIsClosed.exchange(true)) {
        return;
    }
    logtap::keepOn();
    mManager->onVideoStop();
    mManager->onVideoAppStop();
    logtap::release();
    gIsOpen = false;
}

VideoSession::VideoSession(std::unique_ptr<Impl> impl) : mImpl(std::move(impl)) {}

VideoSession::~VideoSession() = default;

std::unique_ptr<VideoSession> VideoSession::open(const Options& options, std::string* why) {
    std::unique_ptr<VideoSession> session;
    const bool isTaken = gIsOpen.exchange(true);
    if (!isTaken) {
        noThrow([&] {
            auto impl = std::make_unique<Impl>(options);
            session.reset(new VideoSession(std::move(impl)));
        });
        gIsOpen = session != nullptr;
    }
    if (session == nullptr && why != nullptr) {
        noThrow([&] {
            *why = isTaken ? "another video session of this process is open" : "out of memory";
        });
    }
    return session;
}

void VideoSession::setSize(int32_t width, int32_t height) {
    mImpl->setSize(width, height);
}

void VideoSession::setFrameRate(double fps) {
    mImpl->setFrameRate(fps);
}

void VideoSession::restartStream() {
    mImpl->restartStream();
}

Wanted VideoSession::wanted() const {
    Wanted wanted;
    noThrow([&] { mImpl->explain(wanted); });
    return wanted;
}

bool VideoSession::isWanted() const {
    return mImpl->isWanted();
}

std::optional<Limits> VideoSession::limits() const {
    return EngineNotes::get().limits();
}

size_t VideoSession::heldCount() const {
    return HeldFrames::get().count();
}

Result VideoSession::offer(const Frame& frame, Release release) {
    return mImpl->offer(frame, std::move(release));
}

void VideoSession::close() {
    mImpl->close();
}

}  // namespace displayengine::media
