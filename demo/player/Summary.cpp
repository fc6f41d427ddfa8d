// SPDX-License-Identifier: Apache-2.0
#include "Summary.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <nlohmann/json.hpp>

namespace player {
namespace {

void printCount(std::ostream& out, const std::string& name, size_t count, size_t whole) {
    out << "  " << std::left << std::setw(34) << name << std::right << std::setw(7) << count;
    if (whole > 0) {
        const double share = static_cast<double>(count) / static_cast<double>(whole);
        out << std::setw(8) << 100 * share << " %";
    }
    out << '\n';
}

/** The time that the given share of the frames did not exceed, one that really occurred. */
float percentile(std::vector<float> times, double share) {
    std::sort(times.begin(), times.end());
    const double rank = std::ceil(share * static_cast<double>(times.size()));
    return times[static_cast<size_t>(rank) - 1];
}

void printLatency(std::ostream& out, const RunResult& result) {
    if (result.latencies.empty()) {
        out << "Latency: no frame reached the processing library";
    } else {
        out << "Latency of " << result.latencies.size() << " processed frames: median "
            << percentile(result.latencies, 0.5) << " ms, 99th percentile "
            << percentile(result.latencies, 0.99) << " ms, largest "
            << percentile(result.latencies, 1) << " ms";
    }
    if (result.abortMs > 0) {
        out << " (limits: overload " << result.overloadMs << " ms, abort " << result.abortMs
            << " ms)";
    }
    out << '\n';
}

double rate(const RunResult& result) {
    return result.seconds > 0 ? static_cast<double>(result.frames) / result.seconds : 0;
}

}  // namespace

void RunResult::add(const FrameRecord& frame) {
    ++frames;
    ++counts[frame.outcome];
    if (frame.outcome == "not-offered") {
        ++notWanted[frame.text];
    } else if (frame.outcome == "enhanced" || frame.outcome == "failed" ||
               frame.outcome == "expired") {
        // A refusal takes next to no time.
        latencies.push_back(static_cast<float>(frame.milliseconds));
    }
}

size_t RunResult::count(const std::string& prefix) const {
    size_t sum = 0;
    for (const auto& [outcome, count] : counts) {
        sum += outcome.rfind(prefix, 0) == 0 ? count : 0;
    }
    return sum;
}

void printSummary(std::ostream& out, const RunResult& result) {
    out << std::fixed << std::setprecision(1) << result.frames << " frames in " << result.seconds
        << " s, " << rate(result) << " per second\n";
    printCount(out, "not wanted", result.count("not-offered"), 0);
    for (const auto& [reason, count] : result.notWanted) {
        out << "    " << count << ": " << reason << '\n';
    }
    printCount(out, "offered", result.offered(), 0);
    for (const auto& [outcome, count] : result.counts) {
        if (outcome != "not-offered") {
            printCount(out, "  " + outcome, count, result.offered());
        }
    }
    printLatency(out, result);
}

nlohmann::json summaryAsJson(const RunResult& result) {
    nlohmann::json latency = nullptr;
    if (!result.latencies.empty()) {
        latency = {{"frames", result.latencies.size()},
                   {"median", percentile(result.latencies, 0.5)},
                   {"percentile99", percentile(result.latencies, 0.99)},
                   {"largest", percentile(result.latencies, 1)}};
    }
    return {{"frames", result.frames},
            {"seconds", result.seconds},
            {"framesPerSecond", rate(result)},
            {"offered", result.offered()},
            {"outcomes", result.counts},
            {"notWanted", result.notWanted},
            {"latencyMs", latency},
            {"overloadMs", result.overloadMs},
            {"abortMs", result.abortMs}};
}

}  // namespace player
