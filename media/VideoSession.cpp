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
    ~ExitMark() { heldframes::stop(); }
};

/**
 * The engine says nothing of a value that it has already, and its verdict may come from before the
 * session. Another value in between makes it speak.
 */
template <typename SEND>
void report(messages::Condition condition, SEND send) {
    logtap::keepOn();
    send(false);
    if (!messages::isKnown(condition)) {
        send(true);
        send(false);
    }
}

/** Makes the call, and tells what the messages said. */
Result callEngine(const SessionState& state, Aisr::BufferInfo& info) {
    Result result;
    messages::setCall(&result);
    const auto start = std::chrono::steady_clock::now();
    state.manager->doVideoEnhance(info);
    const std::chrono::duration<float, std::milli> elapsed =
        std::chrono::steady_clock::now() - start;
    result.milliseconds = elapsed.count();
    if (result.outcome == Outcome::kUnknown) {
        noThrow([&] { result.text = "another logger has taken the place of the session's"; });
        // If that is not so, this gives another text, and perhaps an outcome.
        __android_log_print(ANDROID_LOG_INFO, logtap::kProbeTag,
                            "A video session's logger has been replaced: it cannot tell outcomes.");
    }
    messages::setCall(nullptr);
    return result;
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

void VideoSession::setSize(int32_t width, int32_t height) {
    if (!mState->isClosed && width >= 1 && height >= 1) {
        const int32_t other = width == 1 ? 2 : width - 1;
        report(messages::kSizeCondition, [&](bool isOther) {
            mState->manager->setVideoRect(isOther ? other : width, height);
        });
    }
}

void VideoSession::setFrameRate(double fps) {
    constexpr double kHighest = 1'000'000;
    if (!mState->isClosed && fps > 0) {
        const int rate = std::max(1, static_cast<int>(std::lround(std::min(fps, kHighest))));
        report(messages::kRateCondition, [&](bool isOther) {
            mState->manager->setVideoFrameRate(isOther ? rate + 1 : rate);
        });
    }
}

void VideoSession::restartStream() {
    const DeMutexLock lock(mState->offerMutex);
    mState->streamId = nextStreamId();
}

Wanted VideoSession::wanted() const {
    Wanted wanted;
    // The reason is set first, and stays without memory for the text.
    noThrow([&] {
        if (mState->isClosed) {
            wanted.reason = Reason::kClosed;
            wanted.text = "the session is closed";
        } else if (mState->manager->needVideoEnhance()) {
            return;
        } else if (!mState->manager->isVideoEngineSupported()) {
            messages::explainBringUp(&wanted);
        } else if (!mState->manager->getVideoAppConfig()) {
            wanted.reason = Reason::kSwitchedOff;
            wanted.text = "enhancement is switched off for this process";
        } else {
            messages::explainConditions(&wanted);
        }
    });
    return wanted;
}

bool VideoSession::isWanted() const {
    return !mState->isClosed && mState->manager->needVideoEnhance();
}

std::optional<Limits> VideoSession::limits() const {
    return messages::limits();
}

size_t VideoSession::heldCount() const {
    return heldframes::count();
}

Result VideoSession::offer(const Frame& frame, Release release) {
    DeMutexLock lock(mState->offerMutex);
    heldframes::Slot slot;
    noThrow([&] { slot.resize(1); });
    if (slot.empty() || !isWanted()) {
        lock.unlock();
        heldframes::call(release);
        return {Outcome::kNotOffered, 0, slot.empty() ? "out of memory" : wanted().text};
    }
    Aisr::BufferInfo info{mState->streamId,    frame.y,      frame.uv,
                          frame.width,         frame.height, frame.stride,
                          heldframes::kNoIndex};
    slot.front().release = std::move(release);
    heldframes::begin(info.id);
    logtap::keepOn();
    Result result = callEngine(*mState, info);
    slot.front().id = info.id;
    slot.front().idx = info.idx;
    heldframes::finish(slot, result.outcome);
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
