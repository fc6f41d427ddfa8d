// SPDX-License-Identifier: Apache-2.0
// How long the frames of each size take.
#include <algorithm>
#include <cmath>
#include <deque>

#include "Check.h"
#include "Library.h"
#include "Report.h"

namespace checker {
namespace {

constexpr FrameShape kShapes[] = {
    {514, 514, 576}, {768, 576, 832}, {960, 540, 960}, {1280, 720, 1344}, {720, 1280, 768},
};
constexpr double kBudgetMs = 3000;
constexpr int kLeastFrames = 10;
// The engine's rule: so many slow frames within so long a time end a stream's enhancement.
constexpr size_t kTolerated = 5;
constexpr double kPeriodMs = 10'000;

/** By nearest rank, a time that really occurred: `fraction` of all take no longer. */
double quantile(const std::vector<double>& sorted, double fraction) {
    const double rank = std::ceil(fraction * static_cast<double>(sorted.size()));
    return sorted[static_cast<size_t>(std::max(rank, 1.0)) - 1];
}

/** After how many frames a stream with these times latches the overload; 0 for never. */
size_t latchesAfter(const std::vector<double>& times, const Settings& settings) {
    const double interval = 1000.0 / settings.fps;
    std::deque<double> slow;
    double now = 0;
    for (size_t i = 0; i < times.size(); ++i) {
        now = std::max(now, static_cast<double>(i) * interval) + times[i];
        if (times[i] < settings.overloadMs || times[i] >= settings.abortMs) {
            continue;  // A frame that expires is cancelled, and fails instead of being slow.
        }
        slow.push_back(now);
        if (slow.size() == kTolerated) {
            if (slow.back() - slow.front() < kPeriodMs) {
                return i + 1;
            }
            slow.pop_front();
        }
    }
    return 0;
}

void judge(const FrameShape& shape, const std::vector<double>& times, const Settings& settings) {
    const auto expired = std::count_if(times.begin(), times.end(),
                                       [&](double time) { return time >= settings.abortMs; });
    const std::string rate = text(shape) + ": at " + std::to_string(settings.fps) + " fps ";
    if (const size_t frames = latchesAfter(times, settings); frames > 0) {
        warn(rate + "the overload would end the enhancement after " + std::to_string(frames) +
             " frames");
    } else if (expired > 0) {
        warn(rate + std::to_string(expired) + " of " + std::to_string(times.size()) +
             " frames would expire");
    }
}

void measure(Library& library, const FrameShape& shape, uint64_t stream, int frames,
             const Settings& settings) {
    Frame frame(shape, Surroundings::kMargins, stream);
    const auto once = [&] {
        const Stopwatch stopwatch;
        library.mustEnhance(frame);
        const double time = stopwatch.milliseconds();
        frame.next();
        return time;
    };
    SizeTimes result{shape};
    result.first = once();
    std::vector<double> times;
    const Stopwatch budget;
    for (int i = 0; i < frames && (i < kLeastFrames || budget.milliseconds() < kBudgetMs); ++i) {
        times.push_back(once());
    }
    judge(shape, times, settings);
    std::sort(times.begin(), times.end());
    result.frames = static_cast<int>(times.size());
    result.low = times.front();
    result.lowerQuartile = quantile(times, 0.25);
    result.median = quantile(times, 0.5);
    result.upperQuartile = quantile(times, 0.75);
    result.high = quantile(times, 0.99);
    result.largest = times.back();
    reportTimes(result);
}

}  // namespace

void checkTimes(const Settings& settings) {
    Library library(settings);
    library.start();
    uint64_t stream = 0;
    for (const FrameShape& shape : kShapes) {
        measure(library, shape, ++stream, settings.count(200, 30), settings);
    }
    library.end();
}

}  // namespace checker
