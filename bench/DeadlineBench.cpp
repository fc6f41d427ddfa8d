// SPDX-License-Identifier: Apache-2.0
// How long a call of AisrEngine::enhance() outlasts the abort limit, when the processing library's
// times are long-tailed and one core of the machine is kept busy.
//
// The time of a frame is drawn from a Pareto distribution whose median is the abort limit, so every
// other frame expires, some by far. As scheduling decides when a sleeper gets to run again, what a
// bare timed wait of the same length outlasts it by, with nobody to wake it, is measured in turn
// with the expired frames: that much no implementation can avoid. The engine has more to do than to
// wait (queueing the frame, a warning in the log, the cancel), all of it in its figure.
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "nothing/NothingProcess.h"
#include "support/Affinity.h"
#include "support/EngineSetup.h"
#include "support/Table.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

constexpr int kFrames = 20'000;
constexpr int32_t kAbortMs = 2;
constexpr nanoseconds kLimit = std::chrono::milliseconds(kAbortMs);
constexpr int kFramesPerStream = 3;  // Too few for the overload latch.
constexpr int kLeaveBusyEvery = 4;   // After so many expired frames, one finds the worker busy.
constexpr double kParetoScaleMs = kAbortMs / 2.0;
constexpr double kParetoShape = 1.0;
constexpr double kWanted = 2.0;

/** What the processing library does with a frame: it takes its time, unless it is told to stop. */
class Processing {
public:
    /** The time of the frames from now on, which are not told to stop. */
    void take(nanoseconds time) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mTime = time;
        mIsStopped = false;
    }
    /** Lets the frames end at once and waits until as many have been processed. */
    void stop(uint64_t frames) {
        std::unique_lock<std::mutex> lock(mMutex);
        mIsStopped = true;
        mChanged.notify_all();
        mChanged.wait(lock, [&] { return mProcessed == frames; });
    }
    void process() {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait_for(lock, mTime, [this] { return mIsStopped; });
        ++mProcessed;
        mChanged.notify_all();
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    nanoseconds mTime{0};
    bool mIsStopped = false;
    uint64_t mProcessed = 0;
};

Processing& processing() {
    static Processing& theProcessing = *new Processing;
    return theProcessing;
}

/** Keeps the last core that the process may use busy. */
class BusyCore {
public:
    BusyCore()
        : mThread([this] {
              bench::pinToLastCore();
              while (!mMayStop.load(std::memory_order_relaxed)) {
              }
          }) {}
    ~BusyCore() {
        mMayStop = true;
        mThread.join();
    }
    BusyCore(const BusyCore&) = delete;
    BusyCore& operator=(const BusyCore&) = delete;

private:
    std::atomic<bool> mMayStop{false};
    std::thread mThread;
};

/** The wait alone, by the wall clock like the engine's. Returns how long it took. */
nanoseconds bareWait() {
    static uint32_t word = 0;
    const auto start = Clock::now();
    const nanoseconds deadline = std::chrono::system_clock::now().time_since_epoch() + kLimit;
    const timespec until{static_cast<time_t>(deadline.count() / 1'000'000'000),
                         static_cast<long>(deadline.count() % 1'000'000'000)};
    syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE | FUTEX_CLOCK_REALTIME, 0, &until, nullptr,
            FUTEX_BITSET_MATCH_ANY);
    return Clock::now() - start;
}

/** By how much calls outlasted the limit. */
struct Excess {
    std::vector<double> nanoseconds;

    void add(std::chrono::nanoseconds duration) {
        nanoseconds.push_back(static_cast<double>((duration - kLimit).count()));
    }
    /** The smallest value that `share` of all do not exceed; after sorting. */
    double percentile(double share) const {
        const double rank = std::ceil(share * static_cast<double>(nanoseconds.size()));
        return nanoseconds[static_cast<size_t>(std::max(rank, 1.0)) - 1];
    }
};

struct Outcome {
    Excess expired;      /**< Of the frames that expired. */
    Excess bare;         /**< Of the bare waits, one after each expired frame. */
    double longest = 0;  /**< Of all frames, also of those whose result came in time. */
    uint64_t frames = 0; /**< Processed by the library. */
};

Outcome measure() {
    bench::EngineConfig config;
    config.abortMs = config.overloadMs = kAbortMs;
    const auto engine = bench::startEngine(config);
    std::mt19937_64 random(20'000);
    std::uniform_real_distribution<double> uniform(1e-9, 1.0);
    Outcome outcome;
    for (uint64_t i = 0; i < kFrames; ++i) {
        const double ms = kParetoScaleMs / std::pow(uniform(random), 1 / kParetoShape);
        processing().take(nanoseconds(static_cast<int64_t>(ms * 1e6)));
        Aisr::BufferInfo info = bench::frame(1 + i / kFramesPerStream);
        const uint64_t warnings = bench::warnings();
        const auto start = Clock::now();
        engine->enhance(info);
        const nanoseconds duration = Clock::now() - start;
        outcome.longest =
            std::max(outcome.longest, static_cast<double>((duration - kLimit).count()));
        if (bench::warnings() == warnings) {
            continue;
        }
        outcome.expired.add(duration);
        outcome.bare.add(bareWait());
        if (outcome.expired.nanoseconds.size() % kLeaveBusyEvery != 0 || i + 1 == kFrames) {
            processing().stop(i + 1);
        }
    }
    for (Excess* excess : {&outcome.expired, &outcome.bare}) {
        std::sort(excess->nanoseconds.begin(), excess->nanoseconds.end());
    }
    outcome.frames = gNothingProcessed;
    return outcome;
}

bench::Row compare(const std::string& what, double engine, double bare) {
    bench::Row row;
    row.what = what;
    row.figure = bench::formatTime(engine);
    row.beside = "bare timed wait " + bench::formatTime(bare);
    row.ratio = bench::formatRatio(engine / bare);
    row.wanted = "at most " + bench::formatRatio(kWanted);
    row.verdict = engine <= kWanted * bare ? bench::Verdict::kMet : bench::Verdict::kMissed;
    return row;
}

bench::Table tableOf(const Outcome& outcome) {
    bench::Table table{"A call of `AisrEngine::enhance` beyond the abort limit", {}, {}};
    const struct {
        const char* what;
        double share;
    } percentiles[] = {{"expired frame, median", 0.5},
                       {"expired frame, 99 %", 0.99},
                       {"expired frame, 99.9 %", 0.999},
                       {"expired frame, 99.99 %", 0.9999}};
    for (const auto& [what, share] : percentiles) {
        table.rows.push_back(
            compare(what, outcome.expired.percentile(share), outcome.bare.percentile(share)));
    }
    table.rows.push_back(
        compare("any frame, longest", outcome.longest, outcome.bare.percentile(1)));

    bench::Row all;
    all.what = "frames that the library got";
    all.figure = std::to_string(outcome.frames);
    all.wanted = "all " + std::to_string(kFrames);
    all.verdict = outcome.frames == kFrames ? bench::Verdict::kMet : bench::Verdict::kFailed;
    table.rows.push_back(all);
    table.notes = {std::to_string(kFrames) +
                   " frames whose processing times follow a Pareto distribution with the abort "
                   "limit, " +
                   std::to_string(kAbortMs) +
                   " ms, as its median, beside a thread that keeps one core busy; " +
                   std::to_string(outcome.expired.nanoseconds.size()) +
                   " of them expired, each followed by a bare wait of the same length. A frame "
                   "whose result came in time counts by when its caller got to run again."};
    return table;
}

}  // namespace

int main(int argc, char** argv) {
    bench::setUpService();
    gNothingWork = [] { processing().process(); };
    const BusyCore busy;
    return bench::deliver(tableOf(measure()), argc, argv);
}
