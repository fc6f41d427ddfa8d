// SPDX-License-Identifier: Apache-2.0
#include "Summary.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace player {
namespace {

float atRank(const std::vector<float>& sorted, double fraction) {
    const double rank = std::ceil(fraction * static_cast<double>(sorted.size()));
    return sorted[static_cast<size_t>(std::max(rank, 1.0)) - 1];
}

// A line of its own stream, so that the caller's format settings stay as they are.
void printCount(std::ostream& out, const std::string& name, size_t count, size_t whole) {
    std::ostringstream line;
    line << "  " << std::left << std::setw(34) << name << std::right << std::setw(7) << count;
    if (whole > 0) {
        line << std::fixed << std::setprecision(1) << std::setw(8)
             << 100.0 * static_cast<double>(count) / static_cast<double>(whole) << " %";
    }
    out << line.str() << '\n';
}

void printLatency(std::ostream& out, const RunResult& result, const LatencyStats& latency) {
    std::ostringstream line;
    line << std::fixed << std::setprecision(1);
    if (latency.count == 0) {
        line << "Latency: no frame reached the processing library";
    } else {
        line << "Latency of " << latency.count << " processed frames: median " << latency.median
             << " ms, 99th percentile " << latency.p99 << " ms, largest " << latency.largest
             << " ms";
    }
    if (result.limits) {
        line << " (limits: overload " << result.limits->overloadMs << " ms, abort "
             << result.limits->abortMs << " ms)";
    }
    out << line.str() << '\n';
}

}  // namespace

LatencyStats latencyStats(std::vector<float> milliseconds) {
    if (milliseconds.empty()) {
        return {};
    }
    std::sort(milliseconds.begin(), milliseconds.end());
    return {milliseconds.size(), atRank(milliseconds, 0.5), atRank(milliseconds, 0.99),
            milliseconds.back()};
}

Tally::Tally(const std::vector<FrameRecord>& frames) {
    std::vector<float> times;
    for (const FrameRecord& frame : frames) {
        ++mCounts[static_cast<size_t>(frame.outcome)];
        if (reachedWorker(frame.outcome)) {
            times.push_back(frame.milliseconds);
        }
    }
    mOffered = frames.size() - of(Outcome::kNotNeeded);
    mLatency = latencyStats(std::move(times));
}

void printSummary(std::ostream& out, const RunResult& result) {
    const Tally tally(result.frames);
    std::ostringstream head;
    head << std::fixed << std::setprecision(1) << result.frames.size() << " frames in "
         << result.seconds << " s";
    if (result.seconds > 0) {
        head << ", " << static_cast<double>(result.frames.size()) / result.seconds << " per second";
    }
    out << head.str() << '\n';
    printCount(out, "not needed", tally.of(Outcome::kNotNeeded), 0);
    for (const auto& [reason, count] : result.notNeeded) {
        out << "    " << count << ": " << reason << '\n';
    }
    printCount(out, "offered", tally.offered(), 0);
    for (size_t i = 0; i < kOutcomes; ++i) {
        const Outcome outcome = static_cast<Outcome>(i);
        const bool isShown = outcome == Outcome::kEnhanced ||
                             (outcome != Outcome::kNotNeeded && tally.of(outcome) > 0);
        if (isShown) {
            printCount(out, std::string("  ") + outcomeText(outcome), tally.of(outcome),
                       tally.offered());
        }
    }
    printLatency(out, result, tally.latency());
}

}  // namespace player
