// SPDX-License-Identifier: Apache-2.0
// The cancel, which comes on another thread than the frames.
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>

#include "Check.h"
#include "Library.h"
#include "Report.h"

namespace checker {
namespace {

/** No machine load makes a cancel that returns at once take so long time and again. */
constexpr double kBlockingMs = 10;
/** Longer than this, and the media client's picture is late. */
constexpr double kSlowMs = 5;
/** A frame has to last so long to be met while it is being processed. */
constexpr double kLongFrameMs = 3;

/** A frame that was cancelled while it was in processing, as far as that could be arranged. */
struct Attempt {
    bool isMet = false;     /**< It was in processing when the cancel began. */
    bool hasWaited = false; /**< The cancel's thread gave the core up of its own accord. */
    double cancelMs = 0;    /**< Length of the cancel. */
    double endMs = 0;       /**< From the cancel's beginning to the frame's end. */
    int32_t status = AISR_SUCCESS;
};

long voluntaryWaits() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

/** Processes `frame` on a thread of its own and cancels `named` after `delayMs`. */
Attempt cancelDuring(Library& library, const Frame& frame, const AisrBuffer& named,
                     double delayMs) {
    Attempt attempt;
    std::atomic<bool> isBegun{false};
    std::atomic<bool> isEnded{false};
    const Stopwatch stopwatch;
    std::atomic<double> endedAt{0};
    std::thread worker([&] {
        attempt.status = library.submit(frame);
        isBegun = true;
        if (attempt.status == AISR_SUCCESS) {
            attempt.status = library.process(frame);
        }
        endedAt = stopwatch.milliseconds();
        isEnded = true;
    });
    while (!isBegun) {
        std::this_thread::yield();
    }
    pause(delayMs);
    attempt.isMet = !isEnded;
    const double begin = stopwatch.milliseconds();
    const long waits = voluntaryWaits();
    const int32_t status = library.cancel(named);
    attempt.hasWaited = voluntaryWaits() > waits;
    attempt.cancelMs = stopwatch.milliseconds() - begin;
    worker.join();
    attempt.endMs = endedAt - begin;
    if (status != AISR_SUCCESS) {
        warn("AisrSetParam(AISR_TAG_SET_TIMEOUT) returned " + statusText(status));
    }
    return attempt;
}

double medianOf(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

/** A frame that takes long enough to be met, if there is one, and its usual time. */
struct LongFrame {
    std::unique_ptr<Frame> frame;
    double milliseconds = 0;

    explicit LongFrame(Library& library) {
        for (const FrameShape& shape :
             {FrameShape{1280, 720, 1344}, {1920, 1080, 1920}, {3840, 2160, 3840}}) {
            auto larger = std::make_unique<Frame>(shape);
            larger->buffer().idx = frame != nullptr ? frame->index() : 0;
            std::vector<double> times;
            for (int i = 0; i < 3; ++i) {
                const Stopwatch stopwatch;
                const int32_t status = library.enhance(*larger);
                if (status != AISR_SUCCESS && frame == nullptr) {
                    failAndStop(larger->text() + " ended with " + statusText(status));
                } else if (status != AISR_SUCCESS) {
                    return;
                }
                times.push_back(stopwatch.milliseconds());
                larger->next();
            }
            frame = std::move(larger);
            milliseconds = *std::min_element(times.begin(), times.end());
            if (milliseconds >= kLongFrameMs) {
                return;
            }
        }
    }
};

/** Cancels a frame in processing again and again; only the attempts that met it are returned. */
std::vector<Attempt> cancelRepeatedly(Library& library, LongFrame* longFrame, int count) {
    std::vector<Attempt> met;
    for (int i = 0; i < count; ++i) {
        Frame& frame = *longFrame->frame;
        const double delayMs = longFrame->milliseconds / 4;
        const Attempt attempt = cancelDuring(library, frame, frame.buffer(), delayMs);
        if (attempt.isMet) {
            met.push_back(attempt);
        }
        frame.next();
    }
    if (met.empty()) {
        note("no frame lasted long enough to be met in processing");
    }
    return met;
}

/**
 * Whether the cancel returned when the frame had ended, and did not make it end: a shared lock. The
 * thread may return some time after it could; a cancel that blocks takes longer still.
 */
bool isWaitForFrame(const Attempt& attempt) {
    return attempt.status == AISR_SUCCESS && attempt.cancelMs >= 1 &&
           attempt.cancelMs >= attempt.endMs - 1 && attempt.cancelMs <= 2 * attempt.endMs + 20;
}

template <typename FUNC>
std::vector<double> collect(const std::vector<Attempt>& attempts, FUNC value) {
    std::vector<double> values;
    std::transform(attempts.begin(), attempts.end(), std::back_inserter(values), value);
    return values;
}

void judgeLengths(const std::vector<double>& lengths, bool isWait, const std::string& when) {
    if (lengths.empty()) {
        return;
    }
    const double least = *std::min_element(lengths.begin(), lengths.end());
    const std::string times = std::to_string(lengths.size()) + " times";
    const std::string what = "AisrSetParam(AISR_TAG_SET_TIMEOUT) ";
    if (least >= kBlockingMs) {
        fail(what + "took " + oneDecimal(least) + " ms or more, " + times + " of " + times + ", " +
             when + (isWait ? "" : ", computing"));
    } else if (medianOf(lengths) >= kSlowMs) {
        warn(what + "took " + oneDecimal(medianOf(lengths)) + " ms, median of " + times + ", " +
             when);
    } else {
        note(oneDecimal(medianOf(lengths)) + " ms " + when);
    }
}

}  // namespace

void checkCancelReturns(const Settings& settings) {
    Library library(settings);
    library.start();
    LongFrame longFrame(library);
    const int count = settings.count(12, 6);
    const std::vector<Attempt> met = cancelRepeatedly(library, &longFrame, count);
    const auto waiting = std::count_if(met.begin(), met.end(), isWaitForFrame);
    if (met.size() >= 4 && 4 * static_cast<size_t>(waiting) >= 3 * met.size()) {
        fail("AisrSetParam(AISR_TAG_SET_TIMEOUT) waits for the frame in processing, " +
             std::to_string(waiting) + " times of " + std::to_string(met.size()));
        return;
    }
    const bool haveAllSlept = std::all_of(met.begin(), met.end(),
                                          [](const Attempt& attempt) { return attempt.hasWaited; });
    judgeLengths(collect(met, [](const Attempt& attempt) { return attempt.cancelMs; }),
                 haveAllSlept, "while a frame was in processing");
    std::vector<double> idle;
    for (int i = 0; i < count / 2; ++i) {
        const Stopwatch stopwatch;
        library.cancel(longFrame.frame->buffer());
        idle.push_back(stopwatch.milliseconds());
    }
    if (met.empty()) {
        judgeLengths(idle, true, "while no frame was in processing");
    }
    longFrame.frame->next();
    library.enhance(*longFrame.frame);
    library.end();
}

void checkCancelEnds(const Settings& settings) {
    Library library(settings);
    library.start();
    LongFrame longFrame(library);
    const std::vector<Attempt> met = cancelRepeatedly(library, &longFrame, settings.count(12, 6));
    library.enhance(*longFrame.frame);
    library.end();
    if (met.empty()) {
        return;
    }
    const auto endedWith = [&](int32_t status) {
        return std::count_if(met.begin(), met.end(),
                             [status](const Attempt& attempt) { return attempt.status == status; });
    };
    const auto total = static_cast<ptrdiff_t>(met.size());
    const double endMs =
        medianOf(collect(met, [](const Attempt& attempt) { return attempt.endMs; }));
    const std::string when = oneDecimal(endMs) + " ms after the cancel, median of " +
                             std::to_string(total) + ", " + longFrame.frame->text();
    if (endedWith(AISR_SUCCESS) == total) {
        warn("a cancelled frame ended with AISR_SUCCESS each time, " + when +
             ": the cancel has no effect");
    }
    for (const Attempt& attempt : met) {
        if (attempt.status != AISR_SUCCESS && attempt.status != AISR_ERR_TIMEOUT) {
            warn("a cancelled frame ended with " + statusText(attempt.status) +
                 " instead of AISR_ERR_TIMEOUT(3)");
            break;
        }
    }
    if (endMs >= settings.overloadMs) {
        warn("a cancelled frame ended only " + when);
    }
    note("a cancelled frame ended " + when + ", " + std::to_string(endedWith(AISR_ERR_TIMEOUT)) +
         " with AISR_ERR_TIMEOUT");
}

void checkCancelNames(const Settings& settings) {
    Library library(settings);
    library.start();
    LongFrame longFrame(library);
    Frame& frame = *longFrame.frame;
    const auto next = [&](const std::string& when) {
        frame.next();
        library.mustEnhance(frame, when);
        frame.next();
    };
    library.cancel(frame.buffer());
    library.enhance(frame);
    next("after one that was cancelled before it was submitted");
    if (library.submit(frame) == AISR_SUCCESS) {
        library.cancel(frame.buffer());
        library.process(frame);
    }
    next("after one that was cancelled before it was processed");
    library.mustEnhance(frame);
    library.cancel(frame.buffer());
    next("after one that was cancelled when it had ended");
    cancelDuring(library, frame, frame.buffer(), longFrame.milliseconds / 4);
    library.cancel(frame.buffer());
    next("after one that was cancelled twice");
    for (const bool isOtherStream : {false, true}) {
        AisrBuffer other = frame.buffer();
        other.id += isOtherStream ? 1 : 0;
        other.idx += isOtherStream ? 0 : 1;
        const Attempt attempt = cancelDuring(library, frame, other, longFrame.milliseconds / 4);
        if (attempt.status != AISR_SUCCESS) {
            failAndStop("AisrProcess, " + frame.text() + ", returned " +
                        statusText(attempt.status) + ", though the cancel named " +
                        (isOtherStream ? "another stream" : "the frame behind it"));
        }
        // The frame behind may have been cancelled by this, and the one after it not.
        frame.next();
        library.enhance(frame);
        next(isOtherStream ? "after a cancel of another stream" : "after a cancelled one");
    }
    library.end();
}

void checkDeinitAfterCancel(const Settings& settings) {
    Library library(settings);
    const int rounds = settings.count(8, 3);
    for (int i = 0; i < rounds; ++i) {
        library.start();
        LongFrame longFrame(library);
        Frame& frame = *longFrame.frame;
        cancelDuring(library, frame, frame.buffer(), longFrame.milliseconds / 4);
        library.end();
        library.start();
        library.cancel(frame.buffer());
        library.end();
    }
}

}  // namespace checker
