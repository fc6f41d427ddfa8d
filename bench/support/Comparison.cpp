// SPDX-License-Identifier: Apache-2.0
#include "support/Comparison.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <utility>

namespace bench {

namespace {

/** Keeps the time of every repetition. */
class Collector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration) {
                continue;
            }
            const std::string& name = run.run_name.function_name;
            if (run.error_occurred) {
                std::cerr << name << ": " << run.error_message << "\n";
                mFailed[name] = run.error_message;
            } else {
                // Of the repetition of this number, since each comes once.
                mTimes[name][run.repetition_index] = run.GetAdjustedRealTime();
            }
        }
    }

    /** Nanoseconds by repetition; empty for a benchmark that failed or did not run. */
    std::map<int64_t, double> times(const std::string& name) const {
        const auto found = mTimes.find(name);
        return found == mTimes.end() || mFailed.count(name) != 0 ? std::map<int64_t, double>()
                                                                 : found->second;
    }

private:
    std::map<std::string, std::map<int64_t, double>> mTimes;
    std::map<std::string, std::string> mFailed;
};

double median(const std::map<int64_t, double>& times) {
    std::vector<double> sorted;
    for (const auto& [repetition, time] : times) {
        sorted.push_back(time);
    }
    std::sort(sorted.begin(), sorted.end());
    const size_t middle = sorted.size() / 2;
    return sorted.size() % 2 == 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

std::string spread(const std::map<int64_t, double>& subject,
                   const std::map<int64_t, double>& beside) {
    std::vector<double> ratios;
    for (const auto& [repetition, time] : subject) {
        const auto other = beside.find(repetition);
        if (other != beside.end()) {
            ratios.push_back(time / other->second);
        }
    }
    if (ratios.empty()) {
        return {};
    }
    const auto [least, most] = std::minmax_element(ratios.begin(), ratios.end());
    return formatRatio(*least) + " to " + formatRatio(*most);
}

Row rowOf(const Comparison& comparison, const Collector& collected) {
    const auto subject = collected.times(comparison.subject);
    const auto beside = collected.times(comparison.beside);
    Row row;
    row.what = comparison.what;
    if (comparison.wanted != Comparison::Wanted::kNothing) {
        row.wanted =
            (comparison.wanted == Comparison::Wanted::kAtMost ? "at most " : "less than ") +
            formatRatio(comparison.limit);
    }
    if (subject.empty() || beside.empty()) {
        row.figure = "not measured";
        row.beside = comparison.besideWhat;
        row.verdict = Verdict::kFailed;
        return row;
    }
    const double ratio = median(subject) / median(beside);
    row.figure = formatTime(median(subject));
    row.beside = comparison.besideWhat + " " + formatTime(median(beside));
    row.ratio = formatRatio(ratio);
    row.spread = spread(subject, beside);
    if (comparison.wanted != Comparison::Wanted::kNothing) {
        const bool isMet = comparison.wanted == Comparison::Wanted::kAtMost
                               ? ratio <= comparison.limit
                               : ratio < comparison.limit;
        row.verdict = isMet ? Verdict::kMet : Verdict::kMissed;
    }
    return row;
}

}  // namespace

int runComparisons(const std::string& title, const std::vector<Comparison>& comparisons,
                   const std::vector<std::string>& notes, int argc, char** argv) {
    // What is on the command line comes behind these, and so counts.
    std::vector<std::string> options{"--benchmark_enable_random_interleaving=true",
                                     "--benchmark_repetitions=15", "--benchmark_min_time=0.05"};
    std::vector<char*> arguments{argv[0]};
    for (std::string& option : options) {
        arguments.push_back(option.data());
    }
    arguments.insert(arguments.end(), argv + 1, argv + argc);
    int count = static_cast<int>(arguments.size());
    benchmark::Initialize(&count, arguments.data());

    Collector collected;
    benchmark::RunSpecifiedBenchmarks(&collected);
    Table table{title, {}, notes};
    for (const Comparison& comparison : comparisons) {
        table.rows.push_back(rowOf(comparison, collected));
    }
    return deliver(table, argc, argv);
}

}  // namespace bench
