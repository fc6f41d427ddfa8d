// SPDX-License-Identifier: Apache-2.0
#include "FrameLog.h"

#include <cerrno>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace player {
namespace {

/** What the element says about the frame. */
FrameRecord read(GstBuffer* buffer) {
    GstCustomMeta* const meta = gst_buffer_get_custom_meta(buffer, "displayengine-outcome");
    FrameRecord frame;
    if (meta == nullptr) {
        frame.outcome = "unknown";
        return frame;
    }
    const GstStructure* const fields = gst_custom_meta_get_structure(meta);
    const auto field = [fields](const char* name) -> std::string {
        const char* const value = gst_structure_get_string(fields, name);
        return value != nullptr ? value : "";
    };
    frame.outcome = field("outcome") == "processed" ? "enhanced" : field("outcome");
    frame.reason = field("reason");
    frame.text = field("text");
    gst_structure_get_double(fields, "latency-ms", &frame.milliseconds);
    return frame;
}

}  // namespace

FrameLog::FrameLog(Console& console, const std::string& csv)
    : mConsole(console), mTable(csv, std::ios::trunc) {
    mTable << std::fixed << std::setprecision(3) << "frame,seconds,outcome,milliseconds,reason\n";
    if (!mTable.flush()) {
        throw std::runtime_error("cannot write '" + csv + "': " + std::strerror(errno));
    }
}

void FrameLog::add(Clock::time_point turn, GstBuffer* before, GstBuffer* after, GstCaps* caps) {
    FrameRecord frame = read(after);
    const DeMutexLock lock(mMutex);
    if (mRun.frames == 0) {
        mStart = turn;
        mProgressTime = turn;
    }
    frame.seconds = std::chrono::duration<double>(turn - mStart).count();
    writeRow(frame);
    tellChange(frame);
    tellTrouble(frame);
    if (frame.outcome == "enhanced") {
        mPicture.consider(before, after, caps);
    }
    mRun.add(frame);
    const Clock::time_point now = Clock::now();
    mRun.seconds = std::chrono::duration<double>(now - mStart).count();
    if (mConsole.wantsProgress(now)) {
        showProgress(frame, now);
    }
}

void FrameLog::writeRow(const FrameRecord& frame) {
    mTable << mRun.frames << ',' << frame.seconds << ',' << frame.outcome << ',';
    if (frame.milliseconds > 0) {
        mTable << frame.milliseconds;
    }
    mTable << ',';
    if (const std::string& why = frame.reason.empty() ? frame.text : frame.reason; !why.empty()) {
        mTable << std::quoted(why, '"', '"');
    }
    mTable << '\n';
}

/** One line whenever enhancement becomes wanted or no longer wanted, or the reason changes. */
void FrameLog::tellChange(const FrameRecord& frame) {
    if (frame.reason == mWhyNot) {
        return;
    }
    mWhyNot = frame.reason;
    const std::string number = std::to_string(mRun.frames);
    if (mWhyNot.empty()) {
        mConsole.line("Enhancement is wanted again from frame " + number + ".");
    } else {
        mConsole.line("Playing without enhancement from frame " + number + ": " + frame.text + ".");
    }
}

/** One line for the first frame of each kind that was offered in vain, with the engine's words. */
void FrameLog::tellTrouble(const FrameRecord& frame) {
    const bool isTrouble = frame.outcome != "enhanced" && frame.outcome != "not-offered";
    if (isTrouble && mRun.count(frame.outcome) == 0) {
        mConsole.line("Frame " + std::to_string(mRun.frames) + " " + frame.outcome +
                      (frame.text.empty() ? "" : ": ") + frame.text);
    }
}

void FrameLog::showProgress(const FrameRecord& frame, Clock::time_point now) {
    const double span = std::chrono::duration<double>(now - mProgressTime).count();
    const auto frames = static_cast<double>(mRun.frames - mProgressFrames);
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << std::setw(6) << mRun.seconds << " s  "
         << mRun.frames << " frames";
    if (mProgressFrames > 0) {
        text << ", " << frames / span << " per second, latency " << frame.milliseconds << " ms";
    }
    text << ": " << mRun.count("enhanced") << " enhanced, " << mRun.count("not-offered")
         << " not wanted, " << mRun.count("refused") << " refused, " << mRun.count("expired")
         << " expired";
    mConsole.progress(text.str(), now);
    mProgressTime = now;
    mProgressFrames = mRun.frames;
}

size_t FrameLog::frames() const {
    const DeMutexLock lock(mMutex);
    return mRun.frames;
}

FrameLog::Result FrameLog::finish() {
    const DeMutexLock lock(mMutex);
    mConsole.finish();
    mTable.close();
    return {std::move(mRun), std::move(mPicture), !mTable.fail()};
}

}  // namespace player
