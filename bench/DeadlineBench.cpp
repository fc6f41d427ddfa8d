// SPDX-License-Identifier: Apache-2.0
// By how much a call of AisrEngine::enhance() exceeds the abort limit, while one core of the
// machine is kept busy: when the processing library's times are long-tailed, and when another
// thread is inside the library's deinit entry.
//
// Long-tailed times are drawn from a Pareto distribution whose median is the abort limit, so every
// other frame expires, some by far. The scheduler decides when a sleeper runs again, so each
// expired frame is followed by a bare timed wait of the same length that nobody wakes: no
// implementation can be better than that. The engine also queues the frame, logs a warning and
// cancels the frame, and all of it is in its figure.
#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "nothing/NothingProcess.h"
#include "support/Affinity.h"
#include "support/EngineSetup.h"
#include "support/Process.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

constexpr uint64_t kFrames = 20'000;
constexpr int64_t kHolds = 100;
constexpr std::chrono::seconds kHold{1};
constexpr int32_t kAbortMs = 2;
constexpr nanoseconds kLimit = std::chrono::milliseconds(kAbortMs);
constexpr int kFramesPerStream = 3;  // Too few for the overload latch.
constexpr int kLeaveBusyEvery = 4;   // After so many expired frames, one finds the worker busy.
constexpr double kParetoScaleMs = kAbortMs / 2.0;
constexpr double kParetoShape = 1.0;

/** What the processing library does: a frame takes its time, unless it is told to stop. */
class Processing {
public:
    /** The time of the frames from now on, which are not told to stop. */
    void take(nanoseconds time) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mTime = time;
        mIsStopped = false;
    }
    /** Lets frames and deinit end at once; waits until so many frames have been processed. */
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
    uint64_t processed() {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mProcessed;
    }

    /** The next deinit takes a second, unless it is told to stop. */
    void holdDeinit() {
        const std::lock_guard<std::mutex> lock(mMutex);
        mIsStopped = false;
        mHold = kHold;
    }
    void waitForDeinit() {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [this] { return mIsInDeinit; });
    }
    void deinit() {
        std::unique_lock<std::mutex> lock(mMutex);
        mIsInDeinit = true;
        mChanged.notify_all();
        mChanged.wait_for(lock, mHold, [this] { return mIsStopped; });
        mIsInDeinit = false;
        mHold = {};
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    nanoseconds mTime{0};
    nanoseconds mHold{0};
    bool mIsStopped = false;
    bool mIsInDeinit = false;
    uint64_t mProcessed = 0;
};

Processing* gProcessing = nullptr;

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

template <typename FUNC>
nanoseconds timeOf(FUNC func) {
    const auto start = Clock::now();
    func();
    return Clock::now() - start;
}

/** The wait alone, by the wall clock like the engine's. */
void bareWait() {
    static uint32_t word = 0;
    const nanoseconds deadline = std::chrono::system_clock::now().time_since_epoch() + kLimit;
    const timespec until{static_cast<time_t>(deadline.count() / 1'000'000'000),
                         static_cast<long>(deadline.count() % 1'000'000'000)};
    syscall(SYS_futex, &word, FUTEX_WAIT_BITSET_PRIVATE | FUTEX_CLOCK_REALTIME, 0, &until, nullptr,
            FUTEX_BITSET_MATCH_ANY);
}

/** By how much calls exceeded the limit, in nanoseconds. */
class Excess {
public:
    void add(nanoseconds duration) {
        mValues.push_back(static_cast<double>((duration - kLimit).count()));
    }
    size_t count() const { return mValues.size(); }
    /** Reports percentiles: the smallest value that so many of all do not exceed. */
    void report(benchmark::State& state, const std::string& name) {
        if (mValues.empty()) {
            state.SkipWithError("no frame expired");
            return;
        }
        std::sort(mValues.begin(), mValues.end());
        for (const char* percent : {"50", "90", "99", "99.9", "99.99", "100"}) {
            const double share = std::atof(percent) / 100;
            const double rank = std::ceil(share * static_cast<double>(mValues.size()));
            state.counters[name + " " + percent] =
                mValues[static_cast<size_t>(std::max(rank, 1.0)) - 1];
        }
    }

private:
    std::vector<double> mValues;
};

std::unique_ptr<AisrEngine> startEngine() {
    bench::EngineConfig config;
    config.abortMs = config.overloadMs = kAbortMs;
    return bench::startEngine(config);
}

void longTailed(benchmark::State& state) {
    const BusyCore busy;
    Processing processing;
    gProcessing = &processing;
    const auto engine = startEngine();
    std::mt19937_64 random(20'000);
    std::uniform_real_distribution<double> uniform(1e-9, 1.0);
    Excess expired;
    Excess bare;
    Excess all;  // Also of the frames whose result came in time.
    uint64_t frames = 0;
    for (auto _ : state) {
        const double ms = kParetoScaleMs / std::pow(uniform(random), 1 / kParetoShape);
        processing.take(nanoseconds(static_cast<int64_t>(ms * 1e6)));
        Aisr::BufferInfo info = bench::frame(1 + frames++ / kFramesPerStream);
        const uint64_t warnings = bench::warnings();
        const nanoseconds duration = timeOf([&] { engine->enhance(info); });
        all.add(duration);
        if (bench::warnings() == warnings) {
            continue;
        }
        expired.add(duration);
        bare.add(timeOf(&bareWait));
        if (expired.count() % kLeaveBusyEvery != 0 || frames == kFrames) {
            processing.stop(frames);
        }
    }
    if (processing.processed() != kFrames) {
        state.SkipWithError("a frame was refused");
    }
    expired.report(state, "expired");
    bare.report(state, "bare");
    all.report(state, "all");
    state.counters["expired"] = static_cast<double>(expired.count());
}
BENCHMARK(longTailed)->Iterations(kFrames)->Repetitions(1)->UseRealTime();

/** The frame expires while onAppStop() is inside the deinit entry, which waits for its caller. */
void duringDeinit(benchmark::State& state) {
    const BusyCore busy;
    Processing processing;
    gProcessing = &processing;
    const auto engine = startEngine();
    Excess expired;
    Excess bare;
    uint64_t frames = 0;
    for (auto _ : state) {
        processing.holdDeinit();
        std::thread stopping([&] { engine->onAppStop(); });
        processing.waitForDeinit();
        Aisr::BufferInfo info = bench::frame(++frames);
        const uint64_t warnings = bench::warnings();
        expired.add(timeOf([&] { engine->enhance(info); }));
        const bool isExpired = bench::warnings() != warnings;
        bare.add(timeOf(&bareWait));
        processing.stop(frames);
        stopping.join();
        if (!isExpired) {
            state.SkipWithError("a frame did not expire");
            break;
        }
    }
    expired.report(state, "expired");
    bare.report(state, "bare");
}
BENCHMARK(duringDeinit)->Iterations(kHolds)->Repetitions(1)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    bench::setUpService();
    gNothingWork = [] { gProcessing->process(); };
    gNothingDeinitWork = [] { gProcessing->deinit(); };
    return bench::run(argc, argv);
}
