// SPDX-License-Identifier: Apache-2.0
// How long the frames of each size take.
#include <algorithm>
#include <cmath>
#include <deque>

#include "Library.h"

namespace checker {
namespace {

constexpr FrameShape kShapes[] = {
    {514, 514, 576}, {768, 576, 832}, {960, 540, 960}, {1280, 720, 1344}, {720, 1280, 768},
};
// The engine's rule: so many slow frames within so long a time end a stream's enhancement.
constexpr size_t kTolerated = 5;
constexpr double kPeriodMs = 10'000;

/** After how many frames a stream with these times latches the overload; 0 for never. */
size_t latchesAfter(const std::vector<double>& times, const Settings& settings) {
    std::deque<double> slow;
    double now = 0;
    for (size_t i = 0; i < times.size(); ++i) {
        now = std::max(now, 1000.0 * static_cast<double>(i) / settings.fps) + times[i];
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
    const std::string rate = text(shape) + ": at " + std::to_string(settings.fps) + " fps ";
    const auto expired = std::count_if(times.begin(), times.end(),
                                       [&](double time) { return time >= settings.abortMs; });
    if (const size_t frames = latchesAfter(times, settings); frames > 0) {
        warn(rate + "the overload would end the enhancement after " + std::to_string(frames) +
             " frames");
    } else if (expired > 0) {
        warn(rate + std::to_string(expired) + " of " + std::to_string(times.size()) +
             " frames would expire");
    }
}

SizeTimes summarise(const FrameShape& shape, double first, std::vector<double> times) {
    std::sort(times.begin(), times.end());
    // By nearest rank: a time that really occurred.
    const auto quantile = [&times](double fraction) {
        return times[static_cast<size_t>(std::ceil(fraction * static_cast<double>(times.size()))) -
                     1];
    };
    return {shape,          static_cast<int>(times.size()),
            first,          times.front(),
            quantile(0.25), quantile(0.5),
            quantile(0.75), quantile(0.99),
            times.back()};
}

}  // namespace

void checkTimes(const Settings& settings) {
    Library library(settings);
    library.start();
    uint64_t stream = 0;
    for (const FrameShape& shape : kShapes) {
        Frame frame(shape);
        frame.buffer().id = ++stream;
        std::vector<double> times;
        const Stopwatch budget;
        const double budgetMs = settings.count(3000, 100);
        const auto frames = static_cast<size_t>(settings.count(200, 30));
        while (times.size() <= static_cast<size_t>(settings.count(10, 5)) ||
               (times.size() <= frames && budget.milliseconds() < budgetMs)) {
            const Stopwatch stopwatch;
            library.mustEnhance(frame);
            times.push_back(stopwatch.milliseconds());
            frame.next();
        }
        const double first = times.front();
        times.erase(times.begin());
        judge(shape, times, settings);
        reportTimes(summarise(shape, first, times));
    }
    library.end();
}

}  // namespace checker
