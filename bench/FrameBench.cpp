// What the engine adds to a frame: the whole way through AisrEngine::enhance(), with a processing
// library that does nothing and the logs off, against the least that handing it to another thread
// and waiting for it costs, and against calling the library's entries directly.
//
// The floor is two threads and two words in memory. The caller sets one word and wakes the worker;
// the worker calls the same two entries, sets the other word and wakes the caller. Each thread
// sleeps in the kernel until its word is set, so a frame takes two wake-ups and two sleeps, as many
// as the engine's: it cannot do with fewer, since it must not spin beside a decoder. The floor has
// no queue, no time limit, no clock and no lock; all that is the engine's to pay.
//
// Both are measured twice. Free: neither has an affinity, so the threads run on two cores, and most
// of the time is the waking of an idle core. On one core: caller and worker are pinned to the same
// one, so a hand-off is a switch between threads, and what the engine does itself weighs most.
#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "nothing/NothingProcess.h"
#include "support/Comparison.h"
#include "support/EngineSetup.h"

namespace {

/** Pins the calling thread, and those that it starts meanwhile, to the last core it may use. */
class OneCore {
public:
    OneCore() {
        sched_getaffinity(0, sizeof(mBefore), &mBefore);
        int last = 0;
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
            last = CPU_ISSET(cpu, &mBefore) ? cpu : last;
        }
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(last, &one);
        sched_setaffinity(0, sizeof(one), &one);
    }
    ~OneCore() { sched_setaffinity(0, sizeof(mBefore), &mBefore); }
    OneCore(const OneCore&) = delete;
    OneCore& operator=(const OneCore&) = delete;

private:
    cpu_set_t mBefore;
};

/** A word that one thread sets and another sleeps for, by the bare system calls. */
class FutexWord {
public:
    void set(uint32_t value) {
        mWord.store(value, std::memory_order_release);
        syscall(SYS_futex, &mWord, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
    uint32_t waitWhile(uint32_t value) {
        uint32_t now;
        while ((now = mWord.load(std::memory_order_acquire)) == value) {
            syscall(SYS_futex, &mWord, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
        }
        return now;
    }

private:
    alignas(64) std::atomic<uint32_t> mWord{0};
};
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));

/** What the engine calls for a frame. */
void processFrame() {
    static void* context;
    char list[24] = {};
    benchmark::DoNotOptimize(AisrSetParam(&context, 2, list, sizeof(list)));
    benchmark::DoNotOptimize(AisrProcess(&context));
}

/** The floor's worker and its two words. */
class FutexHandOff {
public:
    FutexHandOff() : mWorker([this] { work(); }) {}
    ~FutexHandOff() {
        mRequest.set(kStop);
        mWorker.join();
    }
    FutexHandOff(const FutexHandOff&) = delete;
    FutexHandOff& operator=(const FutexHandOff&) = delete;

    void frame() {
        const uint32_t before = mTurn;
        mTurn = before % 2 + 1;
        mRequest.set(mTurn);
        mDone.waitWhile(before);
    }

private:
    static constexpr uint32_t kStop = 3;

    void work() {
        uint32_t turn = 0;
        while ((turn = mRequest.waitWhile(turn)) != kStop) {
            processFrame();
            mDone.set(turn);
        }
    }

    FutexWord mRequest;
    FutexWord mDone;
    uint32_t mTurn = 0;  // 0 at first, then 1 and 2 in turn
    std::thread mWorker;
};

/** How often all threads of the process have gone to sleep of their own accord. */
int64_t sleeps() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw;
}

/** Measures one frame after the other; each is to be processed, and to make its threads sleep. */
template <typename FRAME>
void measure(benchmark::State& state, FRAME frame) {
    const uint64_t processedBefore = gNothingProcessed.load(std::memory_order_acquire);
    const uint64_t warningsBefore = bench::warnings();
    const int64_t sleepsBefore = sleeps();
    for (auto _ : state) {
        frame();
    }
    const auto frames = static_cast<uint64_t>(state.iterations());
    state.counters["sleeps"] =
        static_cast<double>(sleeps() - sleepsBefore) / static_cast<double>(frames);
    if (gNothingProcessed.load(std::memory_order_acquire) - processedBefore != frames ||
        bench::warnings() != warningsBefore) {
        state.SkipWithError("a frame was refused, failed or expired");
    }
}

void measureEngine(benchmark::State& state) {
    const auto engine = bench::startEngine({});
    Aisr::BufferInfo info = bench::frame(1);
    measure(state, [&] { engine->enhance(info); });
}

void measureFloor(benchmark::State& state) {
    FutexHandOff handOff;
    measure(state, [&] { handOff.frame(); });
}

void frameEngine(benchmark::State& state) {
    measureEngine(state);
}
BENCHMARK(frameEngine)->UseRealTime();

void frameFutex(benchmark::State& state) {
    measureFloor(state);
}
BENCHMARK(frameFutex)->UseRealTime();

void frameEngineOneCore(benchmark::State& state) {
    const OneCore pinned;
    measureEngine(state);
}
BENCHMARK(frameEngineOneCore)->UseRealTime();

void frameFutexOneCore(benchmark::State& state) {
    const OneCore pinned;
    measureFloor(state);
}
BENCHMARK(frameFutexOneCore)->UseRealTime();

void frameDirect(benchmark::State& state) {
    measure(state, &processFrame);
}
BENCHMARK(frameDirect)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    bench::setUpService();
    using Wanted = bench::Comparison::Wanted;
    return bench::runComparisons(
        "A frame through `AisrEngine::enhance`",
        {{"frame, threads free", "frameEngine", "futex hand-off and back", "frameFutex",
          Wanted::kAtMost, 1.25},
         {"frame, both threads on one core", "frameEngineOneCore", "futex hand-off and back",
          "frameFutexOneCore", Wanted::kAtMost, 1.25},
         {"frame, threads free", "frameEngine", "the entries called directly", "frameDirect"}},
        {}, argc, argv);
}
