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
#include "media/EngineMessages.h"
#include "media/HeldFrames.h"
#include "media/LogTap.h"

namespace displayengine::media {
namespace {

std::atomic<uint32_t> gStreamCount{0};

/** Streams of the process count up, and no other process has the same. */
uint64_t nextStreamId() {
    return uint64_t{static_cast<uint32_t>(getpid())} << 32 | ++gStreamCount;
}

}  // namespace

/** What the operations of a session share. */
struct SessionState {
    android::sp<DisplayEngineManager> manager;
    std::atomic<bool> isClosed{false};
    /** Held during an offer: frames have to reach the engine in the order of their streams. */
    DeMutex offerMutex;
    uint64_t streamId DE_GUARDED_BY(offerMutex) = nextStreamId();
    HeldFrames::Slot slot DE_GUARDED_BY(offerMutex); /**< For the next frame; may be empty. */
};

namespace {

std::atomic<bool> gIsOpen{false};

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

bool isWanted(const SessionState& state) {
    return !state.isClosed && state.manager->needVideoEnhance();
}

/** Sets the reason first, and may then throw. */
void explain(const SessionState& state, Wanted* wanted) {
    if (state.isClosed) {
        wanted->reason = Reason::kClosed;
        wanted->text = "the session is closed";
    } else if (state.manager->needVideoEnhance()) {
        return;
    } else if (!state.manager->isVideoEngineSupported()) {
        messages::explainBringUp(wanted);
    } else if (!state.manager->getVideoAppConfig()) {
        wanted->reason = Reason::kSwitchedOff;
        wanted->text = "enhancement is switched off for this process";
    } else {
        messages::explainConditions(wanted);
    }
}

/** Makes the call, and tells what the messages said. */
Result callEngine(const SessionState& state, Aisr::BufferInfo& info) {
    messages::Call call;
    messages::setCall(&call);
    const auto start = std::chrono::steady_clock::now();
    state.manager->doVideoEnhance(info);
    const std::chrono::duration<float, std::milli> elapsed =
        std::chrono::steady_clock::now() - start;
    messages::setCall(nullptr);
    noThrow([&] {
        if (call.verdict) {
            return;
        }
        // Refused between two verdicts of the monitor, or not told.
        if (!logtap::isInPlace()) {
            call.text = "another logger has taken the place of the session's";
        } else if (const auto monitor = messages::unhealthy(); monitor && logtap::isOn()) {
            call.verdict = Outcome::kRefusedUnhealthy;
            call.text = *monitor;
        } else {
            call.text = "the engine said nothing";
        }
    });
    return {call.verdict.value_or(Outcome::kUnknown), elapsed.count(), std::move(call.text)};
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

VideoSession::VideoSession(std::unique_ptr<SessionState> state) : mState(std::move(state)) {}

VideoSession::~VideoSession() {
    close();
}

std::unique_ptr<VideoSession> VideoSession::open(const Options& options, std::string* why) {
    std::unique_ptr<VideoSession> session;
    const bool isTaken = gIsOpen.exchange(true);
    noThrow([&] {
        if (!isTaken) {
            messages::prepare();
            logtap::install(options.nextLogger, messages::read);
            auto state = std::make_unique<SessionState>();
            state->manager = new DisplayEngineManager;
            session.reset(new VideoSession(std::move(state)));
        } else if (why != nullptr) {
            *why = "another video session of this process is open";
        }
    });
    if (session != nullptr) {
        session->start(options);
    } else if (!isTaken) {
        gIsOpen = false;
        if (why != nullptr) {
            *why = "out of memory";  // Short enough to need none.
        }
    }
    return session;
}

void VideoSession::start(const Options& options) {
    messages::forgetConditions();
    logtap::acquire();
    android::ProcessState::self()->startThreadPool();
    mState->manager->onVideoAppStart();
    static const ExitMark exitMark;
    mState->manager->onVideoStart();
    setSize(options.width, options.height);
    setFrameRate(options.fps);
}

// The engine says nothing of a value that it has already, and its verdict may come from before the
// session. Another value in between makes it speak.

void VideoSession::setSize(int32_t width, int32_t height) {
    if (mState->isClosed || width < 1 || height < 1) {
        return;
    }
    logtap::keepOn();
    mState->manager->setVideoRect(width, height);
    if (!messages::isKnown(messages::kSizeCondition)) {
        mState->manager->setVideoRect(width == 1 ? 2 : width - 1, height);
        mState->manager->setVideoRect(width, height);
    }
}

void VideoSession::setFrameRate(double fps) {
    constexpr double kHighest = 1'000'000;
    if (mState->isClosed || !(fps > 0)) {
        return;
    }
    logtap::keepOn();
    const int rate = std::max(1, static_cast<int>(std::lround(std::min(fps, kHighest))));
    mState->manager->setVideoFrameRate(rate);
    if (!messages::isKnown(messages::kRateCondition)) {
        mState->manager->setVideoFrameRate(rate + 1);
        mState->manager->setVideoFrameRate(rate);
    }
}

void VideoSession::restartStream() {
    const DeMutexLock lock(mState->offerMutex);
    mState->streamId = nextStreamId();
}

Wanted VideoSession::wanted() const {
    Wanted wanted;
    noThrow([&] { explain(*mState, &wanted); });
    return wanted;
}

bool VideoSession::isWanted() const {
    return media::isWanted(*mState);
}

std::optional<Limits> VideoSession::limits() const {
    return messages::limits();
}

size_t VideoSession::heldCount() const {
    return HeldFrames::get().count();
}

Result VideoSession::offer(const Frame& frame, Release release) {
    DeMutexLock lock(mState->offerMutex);
    HeldFrames::Slot& slot = mState->slot;
    const char* trouble = "";
    try {
        slot.resize(1);
    } catch (...) {
        trouble = "out of memory";
    }
    if (slot.empty() || !isWanted()) {
        lock.unlock();
        HeldFrames::call(release);
        return {Outcome::kNotOffered, 0, *trouble != '\0' ? trouble : wanted().text};
    }
    Aisr::BufferInfo info{mState->streamId,    frame.y,      frame.uv,
                          frame.width,         frame.height, frame.stride,
                          HeldFrames::kNoIndex};
    slot.front() = {info.id, info.idx, std::move(release)};
    HeldFrames& held = HeldFrames::get();
    held.begin(info.id);
    logtap::keepOn();
    Result result = callEngine(*mState, info);
    slot.front().idx = info.idx;
    if (result.outcome == Outcome::kExpired || result.outcome == Outcome::kUnknown) {
        held.hold(slot);
    } else {
        // The worker takes frames in order: done with this one, it is so with all before.
        held.handBack(slot,
                      result.outcome == Outcome::kProcessed || result.outcome == Outcome::kFailed);
    }
    return result;
}

void VideoSession::close() {
    const DeMutexLock lock(mState->offerMutex);
    if (mState->isClosed.exchange(true)) {
        return;
    }
    logtap::keepOn();
    mState->manager->onVideoStop();
    mState->manager->onVideoAppStop();
    logtap::release();
    gIsOpen = false;
}

}  // namespace displayengine::media
