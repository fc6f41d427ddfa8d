// SPDX-License-Identifier: Apache-2.0
#include "Summary.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace player {
namespace {

/** A stream of its own for each line, so that the caller's format settings stay as they are. */
std::ostringstream line() {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1);
    return text;
}

void printCount(std::ostream& out, const std::string& name, size_t count, size_t whole) {
    std::ostringstream text = line();
    text << "  " << std::left << std::setw(34) << name << std::right << std::setw(7) << count;
    if (whole > 0) {
        text << std::setw(8) << 100.0 * static_cast<double>(count) / static_cast<double>(whole)
             << " %";
    }
    out << text.str() << '\n';
}

/** The times of the frames that reached the worker; a refusal takes next to none. */
void printLatency(std::ostream& out, const RunResult& result) {
    std::vector<float> times;
    for (const FrameRecord& frame : result.frames) {
        if (reachedWorker(frame.outcome)) {
            times.push_back(frame.milliseconds);
        }
    }
    std::sort(times.begin(), times.end());
    std::ostringstream text = line();
    if (times.empty()) {
        text << "Latency: no frame reached the processing library";
    } else {
        // Nearest rank: a time that really occurred.
        const auto percentile = [&times](double fraction) {
            const double rank = std::ceil(fraction * static_cast<double>(times.size()));
            return times[static_cast<size_t>(rank) - 1];
        };
        text << "Latency of " << times.size() << " processed frames: median " << percentile(0.5)
             << " ms, 99th percentile " << percentile(0.99) << " ms, largest " << times.back()
             << " ms";
    }
    if (result.limits) {
        text << " (limits: overload " << result.limits->overloadMs << " ms, abort "
             << result.limits->abortMs << " ms)";
    }
    out << text.str() << '\n';
}

}  // namespace

void RunResult::add(const FrameRecord& frame) {
    frames.push_back(frame);
    ++counts[static_cast<size_t>(frame.outcome)];
}

void printSummary(std::ostream& out, const RunResult& result) {
    std::ostringstream head = line();
    head << result.frames.size() << " frames in " << result.seconds << " s";
    if (result.seconds > 0) {
        head << ", " << static_cast<double>(result.frames.size()) / result.seconds << " per second";
    }
    out << head.str() << '\n';
    printCount(out, "not needed", result.count(Outcome::kNotNeeded), 0);
    for (const auto& [reason, count] : result.notNeeded) {
        out << "    " << count << ": " << reason << '\n';
    }
    printCount(out, "offered", result.offered(), 0);
    for (size_t i = 0; i < kOutcomes; ++i) {
        const Outcome outcome = static_cast<Outcome>(i);
        const bool isShown = outcome == Outcome::kEnhanced ||
                             (outcome != Outcome::kNotNeeded && result.count(outcome) > 0);
        if (isShown) {
            printCount(out, std::string("  ") + outcomeText(outcome), result.count(outcome),
                       result.offered());
        }
    }
    printLatency(out, result);
}

}  // namespace player
