// SPDX-License-Identifier: Apache-2.0
// The cancel, which comes on another thread than the frames.
#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>

#include "Library.h"

namespace checker {
namespace {

constexpr char kCancel[] = "AisrSetParam(AISR_TAG_SET_TIMEOUT) ";
/** No machine's load makes a cancel that returns at once take so long time and again. */
constexpr double kBlockingMs = 10;
/** Longer than this, and the media client's picture is late. */
constexpr double kSlowMs = 5;
/** A frame has to last so long to be met while it is being processed. */
constexpr double kLongFrameMs = 3;

/** A frame that was cancelled while it was in processing, as far as that could be arranged. */
struct Attempt {
    bool isMet = false;  /**< It was in processing when the cancel began. */
    double cancelMs = 0; /**< Length of the cancel. */
    double endMs = 0;    /**< From the cancel's beginning to the frame's end. */
    int32_t status = AISR_SUCCESS;
};

/**
 * Whether the cancel returned when the frame had ended, and did not make it end: a shared lock. The
 * thread may return some time after it could; a cancel that blocks takes longer still.
 */
bool isWaitForFrame(const Attempt& attempt) {
    return attempt.status == AISR_SUCCESS && attempt.cancelMs >= 1 &&
           attempt.cancelMs >= attempt.endMs - 1 && attempt.cancelMs <= 2 * attempt.endMs + 20;
}

/** A library at work, with a frame that takes long enough to be met, if there is one. */
class CancelledLibrary : public Library {
public:
    explicit CancelledLibrary(const Settings& settings) : Library(settings) {}

    /** Initialises and finds the frame. */
    void begin() {
        start();
        for (const FrameShape& shape :
             {FrameShape{1280, 720, 1344}, {1920, 1080, 1920}, {3840, 2160, 3840}}) {
            auto larger = std::make_unique<Frame>(shape);
            larger->buffer().idx = mFrame != nullptr ? mFrame->index() : 0;
            double least = 1e9;
            for (int i = 0; i < 5; ++i) {
                const Stopwatch stopwatch;
                if (enhance(*larger) != AISR_SUCCESS) {
                    return;
                }
                least = std::min(least, stopwatch.milliseconds());
                larger->next();
            }
            mFrame = std::move(larger);
            mFrameMs = least;
            if (least >= kLongFrameMs) {
                return;
            }
        }
    }

    Frame& frame() { return *mFrame; }

    /** Processes the frame on a thread of its own and cancels `named` meanwhile. */
    Attempt cancelDuring(const AisrBuffer& named) {
        Attempt attempt;
        std::atomic<bool> isBegun{false};
        std::atomic<bool> isEnded{false};
        double endedMs = 0;
        const Stopwatch stopwatch;
        std::thread worker([&] {
            const int32_t submitted = submit(frame());
            isBegun = true;
            attempt.status = submitted == AISR_SUCCESS ? process(frame()) : submitted;
            endedMs = stopwatch.milliseconds();
            isEnded = true;
        });
        while (!isBegun) {
            std::this_thread::yield();
        }
        pause(mFrameMs / 4);
        attempt.isMet = !isEnded;
        const double begunMs = stopwatch.milliseconds();
        const int32_t status = cancel(&named);
        attempt.cancelMs = stopwatch.milliseconds() - begunMs;
        worker.join();
        attempt.endMs = endedMs - begunMs;
        if (status != AISR_SUCCESS) {
            warn(kCancel + ("returned " + statusText(status)));
        }
        return attempt;
    }

    /** Cancels frames again and again; only the attempts that met theirs are returned. */
    std::vector<Attempt> cancelRepeatedly(int count) {
        std::vector<Attempt> met;
        // A busy machine is often too late for a short frame.
        for (int i = 0; i < 5 * count && met.size() < static_cast<size_t>(count); ++i) {
            const Attempt attempt = cancelDuring(frame().buffer());
            // One that ended on its own a moment later tells nothing.
            if (attempt.isMet && (attempt.status != AISR_SUCCESS || attempt.endMs >= 1)) {
                met.push_back(attempt);
            }
            frame().next();
        }
        if (met.empty()) {
            note("no frame lasted long enough to be met in processing");
        }
        enhance(frame());
        return met;
    }

private:
    std::unique_ptr<Frame> mFrame;
    double mFrameMs = 0;
};

template <typename FUNC>
double medianOf(const std::vector<Attempt>& attempts, FUNC value) {
    std::vector<double> values;
    std::transform(attempts.begin(), attempts.end(), std::back_inserter(values), value);
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

bool isShorter(const Attempt& a, const Attempt& b) {
    return a.cancelMs < b.cancelMs;
}

}  // namespace

void checkCancelReturns(const Settings& settings) {
    CancelledLibrary library(settings);
    library.begin();
    std::vector<Attempt> attempts = library.cancelRepeatedly(settings.count(12, 6));
    std::string when = "while a frame was in processing";
    if (attempts.empty()) {
        when = "while no frame was in processing";
        for (int i = 0; i < 6; ++i) {
            const Stopwatch stopwatch;
            library.cancel(&library.frame().buffer());
            attempts.push_back({false, stopwatch.milliseconds(), 0, AISR_SUCCESS});
        }
    }
    library.end();
    const std::string times =
        std::to_string(attempts.size()) + " times of " + std::to_string(attempts.size());
    const double least = std::min_element(attempts.begin(), attempts.end(), isShorter)->cancelMs;
    const double median = medianOf(attempts, [](const Attempt& one) { return one.cancelMs; });
    const auto waits = std::count_if(attempts.begin(), attempts.end(), isWaitForFrame);
    if (4 * static_cast<size_t>(waits) >= 3 * attempts.size()) {
        fail(kCancel + ("waits for the frame in processing, " + std::to_string(waits)) +
             " times of " + std::to_string(attempts.size()));
    } else if (least >= kBlockingMs) {
        fail(kCancel + ("took " + oneDecimal(least)) + " ms or more, " + times + ", " + when);
    } else if (median >= kSlowMs) {
        warn(kCancel + ("took " + oneDecimal(median)) + " ms, median of " + times + ", " + when);
    }
    note(oneDecimal(median) + " ms " + when);
}

void checkCancelEnds(const Settings& settings) {
    CancelledLibrary library(settings);
    library.begin();
    const std::vector<Attempt> met = library.cancelRepeatedly(settings.count(12, 6));
    library.end();
    if (met.empty()) {
        return;
    }
    const double endMs = medianOf(met, [](const Attempt& attempt) { return attempt.endMs; });
    const std::string when = oneDecimal(endMs) + " ms after the cancel, median of " +
                             std::to_string(met.size()) + ", " + text(library.frame().shape());
    note("a cancelled frame ended with " + statusText(met.back().status) + " " + when);
    if (std::all_of(met.begin(), met.end(),
                    [](const Attempt& attempt) { return attempt.status == AISR_SUCCESS; })) {
        warn("a cancelled frame ended with AISR_SUCCESS each time, " + when +
             ": the cancel has no effect");
    } else if (endMs >= settings.overloadMs) {
        warn("a cancelled frame ended only " + when);
    }
    for (const Attempt& attempt : met) {
        if (attempt.status != AISR_SUCCESS && attempt.status != AISR_ERR_TIMEOUT) {
            warn("instead of AISR_ERR_TIMEOUT(3), a cancelled frame ended with " +
                 statusText(attempt.status));
            break;
        }
    }
}

void checkCancelNames(const Settings& settings) {
    CancelledLibrary library(settings);
    library.begin();
    Frame& frame = library.frame();
    const auto next = [&](const std::string& when) {
        frame.next();
        library.mustEnhance(frame, when);
        frame.next();
    };
    library.cancel(&frame.buffer());
    library.enhance(frame);
    next("after one that was cancelled before it was submitted");
    if (library.submit(frame) == AISR_SUCCESS) {
        library.cancel(&frame.buffer());
        library.process(frame);
    }
    next("after one that was cancelled before it was processed");
    library.mustEnhance(frame);
    library.cancel(&frame.buffer());
    next("after one that was cancelled when it had ended");
    library.cancelDuring(frame.buffer());
    library.cancel(&frame.buffer());
    next("after one that was cancelled twice");
    for (const bool isOtherStream : {false, true}) {
        AisrBuffer other = frame.buffer();
        ++(isOtherStream ? other.id : other.idx);
        const Attempt attempt = library.cancelDuring(other);
        if (attempt.status != AISR_SUCCESS) {
            failAndStop("AisrProcess, " + frame.text() + ", returned " +
                        statusText(attempt.status) + ", though the cancel named " +
                        (isOtherStream ? "another stream" : "the frame behind it"));
        }
        frame.next();
        library.enhance(frame);  // It may be the one that was cancelled.
        next("after a cancel that named another frame");
    }
    library.end();
}

void checkDeinitAfterCancel(const Settings& settings) {
    CancelledLibrary library(settings);
    for (int i = 0; i < settings.count(8, 2); ++i) {
        library.begin();
        library.cancelDuring(library.frame().buffer());
        library.end();
        library.start();
        library.cancel(&library.frame().buffer());
        library.end();
    }
}

}  // namespace checker
