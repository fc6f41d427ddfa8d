// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <fstream>
#include <string>

#include "Console.h"
#include "Gst.h"
#include "Picture.h"
#include "Summary.h"
#include "common/DeMutex.h"

namespace player {

/**
 * What became of the frames, as they are played: counts them, writes a row of frames.csv for each,
 * shows the progress, and keeps the picture. Any thread may call any operation.
 */
class FrameLog {
public:
    using Clock = std::chrono::steady_clock;

    /** Begins the table `csv` anew. Throws std::runtime_error if that is impossible. */
    FrameLog(Console& console, const std::string& csv);

    /**
     * Takes one frame in that has passed the element, whose turn began at `turn`. `before` is the
     * buffer that went in, `after` the one that came out, both of the format in `caps`.
     */
    void add(Clock::time_point turn, GstBuffer* before, GstBuffer* after, GstCaps* caps);

    size_t frames() const;

    /** The end: what there was. Called once. */
    struct Result {
        RunResult run;
        Picture picture;
        bool isTableWhole;
    };
    Result finish();

private:
    void writeRow(const FrameRecord& frame) DE_REQUIRES(mMutex);
    void tellChange(const FrameRecord& frame) DE_REQUIRES(mMutex);
    void tellTrouble(const FrameRecord& frame) DE_REQUIRES(mMutex);
    void showProgress(const FrameRecord& frame, Clock::time_point now) DE_REQUIRES(mMutex);

    mutable DeMutex mMutex;
    Console& mConsole DE_GUARDED_BY(mMutex);
    std::ofstream mTable DE_GUARDED_BY(mMutex);
    Picture mPicture DE_GUARDED_BY(mMutex);
    RunResult mRun DE_GUARDED_BY(mMutex);
    Clock::time_point mStart DE_GUARDED_BY(mMutex);
    std::string mWhyNot DE_GUARDED_BY(mMutex); /**< Why frames are not wanted, as last printed. */
    Clock::time_point mProgressTime DE_GUARDED_BY(mMutex); /**< Of the last progress line. */
    size_t mProgressFrames DE_GUARDED_BY(mMutex) = 0;
};

}  // namespace player
