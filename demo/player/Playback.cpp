// SPDX-License-Identifier: Apache-2.0
#include "Playback.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "common/BufferInfo.h"
#include "common/DisplayEngineCleanCommon.h"

namespace player {
namespace {

std::chrono::steady_clock::duration ticks(double seconds) {
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(seconds));
}

std::string whyUnsupported(const EngineLog& log) {
    const std::string warning = log.state().firstWarning;
    if (warning.rfind("Failed to get displayengineserver binder", 0) == 0) {
        return "the display engine service is not running";
    }
    if (warning.empty() || warning.rfind("AisrProcessor is NOT supported", 0) == 0) {
        return "the display engine service does not support it";
    }
    return "the engine could not be started: " + warning;
}

}  // namespace

Playback::Playback(const Options& options, VideoDecoder& decoder, EngineLog& log, FramePool& pool,
                   const StopSignal& stop)
    : mOptions(options),
      mDecoder(decoder),
      mLog(log),
      mPool(pool),
      mStop(stop),
      // Any number but 0 that no other player on the machine uses.
      mStreamId(static_cast<uint64_t>(getpid()) << 8 | 1),
      mConsole(options.isQuiet) {}

void Playback::connect() {
    mManager = new DisplayEngineManager();
    // The manager has just set the switches from the properties, as a rule to off; but the debug
    // and info messages are what tells one refusal from another.
    g_delogdEnable = true;
    g_delogiEnable = true;
    mIsSupported = mManager->isVideoEngineSupported();
    if (!mIsSupported && !mLog.state().transportTrouble.empty()) {
        throw std::runtime_error(mLog.state().transportTrouble);
    }
}

RunResult Playback::run() {
    startVideo();
    const Clock::time_point end =
        mOptions.seconds ? mStart + ticks(*mOptions.seconds) : Clock::time_point::max();
    while (nextPicture()) {
        auto frame = mPool.take(mDecoder.width(), mDecoder.height());
        mDecoder.convertTo(*frame);
        if (!waitForTurn() || Clock::now() >= end) {
            break;
        }
        playFrame(std::move(frame));
    }
    mManager->onVideoStop();
    mManager->onVideoAppStop();
    mConsole.finish();
    mResult.seconds = std::chrono::duration<double>(Clock::now() - mStart).count();
    mResult.limits = mLog.state().limits;
    return std::move(mResult);
}

void Playback::startVideo() {
    mManager->onVideoAppStart();
    mManager->onVideoStart();
    const double nominal = mDecoder.frameRate();
    mManager->setVideoFrameRate(std::max(static_cast<int>(std::lround(nominal)), 1));
    const double pace = mOptions.fps.value_or(nominal);
    if (pace > 0) {
        mInterval = ticks(1 / pace);
    }
    mStart = Clock::now();
    mDue = mStart;
}

bool Playback::nextPicture() {
    if (mDecoder.next()) {
        return true;
    }
    tellTruncation();
    return mOptions.isLooping && mDecoder.rewind() && mDecoder.next();
}

/**
 * False when the run is to stop. A frame that is late moves the schedule: frames that catch up in a
 * burst would look to the engine like a stream that is too fast.
 */
bool Playback::waitForTurn() {
    if (mStop.waitUntil(mDue)) {
        return false;
    }
    mDue = std::max(mDue + mInterval, Clock::now());
    return true;
}

void Playback::playFrame(std::unique_ptr<Frame> frame) {
    if (frame->width() != mWidth || frame->height() != mHeight) {
        mWidth = frame->width();
        mHeight = frame->height();
        mManager->setVideoRect(mWidth, mHeight);
    }
    if (mManager->needVideoEnhance()) {
        tellChange(std::string());
        offer(std::move(frame));
    } else {
        mPool.give(std::move(frame));
        skip();
    }
    showProgress();
}

void Playback::skip() {
    const std::string whyNot = mIsSupported ? mLog.whyNotNeeded() : whyUnsupported(mLog);
    tellChange(whyNot);
    ++mResult.notNeeded[whyNot];
    mResult.add({Outcome::kNotNeeded, 0});
}

void Playback::offer(std::unique_ptr<Frame> frame) {
    mComparison.before(*frame);
    Aisr::BufferInfo info{};
    info.id = mStreamId;
    info.y = frame->y();
    info.uv = frame->uv();
    info.width = frame->width();
    info.height = frame->height();
    info.stride = frame->stride();

    mLog.beginFrame();
    const Clock::time_point before = Clock::now();
    mManager->doVideoEnhance(info);
    const std::chrono::duration<float, std::milli> elapsed = Clock::now() - before;

    // The library may still be writing the planes of an expired frame.
    const bool isChanged = !mLog.isExpired() && mComparison.after(*frame);
    const Outcome outcome = mLog.outcome(isChanged);
    settle(std::move(frame), info.idx, outcome);
    tellTrouble(outcome);
    mResult.add({outcome, elapsed.count()});
}

void Playback::settle(std::unique_ptr<Frame> frame, uint64_t engineIndex, Outcome outcome) {
    if (outcome == Outcome::kExpired) {
        mPool.hold(std::move(frame), engineIndex);
    } else {
        mPool.give(std::move(frame));
        if (reachedWorker(outcome)) {
            mPool.completed(engineIndex);
        }
    }
    if (const std::optional<uint64_t> index = mLog.state().lastCompleted) {
        mPool.completed(*index);
    }
}

/** One line whenever enhancement becomes needed or no longer needed, or the reason changes. */
void Playback::tellChange(const std::string& whyNot) {
    if (whyNot == mWhyNot) {
        return;
    }
    mWhyNot = whyNot;
    const size_t frame = mResult.frames.size();
    if (whyNot.empty()) {
        mConsole.line("Enhancement is wanted again from frame " + std::to_string(frame) + ".");
    } else {
        mConsole.line("Playing without enhancement from frame " + std::to_string(frame) + ": " +
                      whyNot + ".");
    }
}

/** One line for the first frame of each kind that was not processed, with the engine's message. */
void Playback::tellTrouble(Outcome outcome) {
    const bool isTrouble = outcome != Outcome::kEnhanced && outcome != Outcome::kUnchanged;
    if (!isTrouble || mResult.count(outcome) > 0) {
        return;
    }
    const std::string why =
        outcome == Outcome::kRefusedNotReady ? mLog.state().firstWarning : mLog.state().lastWarning;
    mConsole.line("Frame " + std::to_string(mResult.frames.size()) + " " + outcomeText(outcome) +
                  (why.empty() ? std::string() : ": " + why));
}

void Playback::tellTruncation() {
    if (mDecoder.isTruncated() && !mIsTruncationTold) {
        mIsTruncationTold = true;
        mConsole.finish();
        std::cerr << "displayengine-player: warning: '" << mOptions.video
                  << "' is incomplete: it ends after " << mResult.frames.size()
                  << " frames that could be read" << std::endl;
    }
}

void Playback::showProgress() {
    const Clock::time_point now = Clock::now();
    if (!mConsole.wantsProgress(now)) {
        return;
    }
    size_t refused = 0;
    for (size_t i = 0; i < kOutcomes; ++i) {
        refused += isRefused(static_cast<Outcome>(i)) ? mResult.counts[i] : 0;
    }
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << std::setw(6)
         << std::chrono::duration<double>(now - mStart).count() << " s  " << mResult.frames.size()
         << " frames: " << mResult.count(Outcome::kEnhanced) << " enhanced, "
         << mResult.count(Outcome::kNotNeeded) << " not needed, " << refused << " refused, "
         << mResult.count(Outcome::kExpired) << " expired";
    mConsole.progress(text.str(), now);
}

}  // namespace player
