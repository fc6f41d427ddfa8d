// SPDX-License-Identifier: Apache-2.0
// What the engine adds to a frame: the whole way through AisrEngine::enhance(), with a processing
// library that does nothing and the logs off, against the least that handing it to another thread
// and waiting for it costs, and against calling the library's entries directly.
//
// The floor is two threads and two words in memory. The caller sets one word and wakes the worker;
// the worker calls the same two entries, sets the other word and wakes the caller. Each thread
// sleeps in the kernel until its word is set, so a frame takes as many wake-ups and switches as the
// engine's. It cannot do with fewer, since it must not spin beside a decoder. The bare floor has no
// queue, no clock, no lock and no allocation, its futexes are private to the process, and it would
// wait for ever. The timed floor is the same with a time limit to both waits, as the engine has
// one. The standard one hands a task over and waits for its future, as the engine does, by the
// standard library's means and with nothing around: before the worker gets to wake the caller, it
// has called the kernel twice for nobody, once for the mutex that it took again in the condition's
// wait, and once in the promise.
//
// Everything is measured in two places, with the same affinities for engine and floor. On two
// cores, caller and worker have one each, as on a machine with room for both: most of the time is
// the waking of an idle core. On one core, both are pinned to the same one: a hand-off is a switch
// between threads, and what the engine does itself weighs most.
#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <ctime>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include "nothing/NothingProcess.h"
#include "support/Affinity.h"
#include "support/Comparison.h"
#include "support/EngineSetup.h"

namespace {

using bench::Affinity;
using bench::Place;

/** A word that one thread sets and another sleeps for, by the bare system calls. */
class FutexWord {
public:
    /** With a time limit, which is never reached, or without. */
    explicit FutexWord(bool isTimed) : mIsTimed(isTimed) {}

    void set(uint32_t value) {
        mWord.store(value, std::memory_order_release);
        syscall(SYS_futex, &mWord, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    }
    uint32_t waitWhile(uint32_t value) {
        constexpr timespec kLimit{100, 0};
        uint32_t now;
        while ((now = mWord.load(std::memory_order_acquire)) == value) {
            syscall(SYS_futex, &mWord, FUTEX_WAIT_PRIVATE, value, mIsTimed ? &kLimit : nullptr,
                    nullptr, 0);
        }
        return now;
    }

private:
    alignas(64) std::atomic<uint32_t> mWord{0};
    const bool mIsTimed;
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
    explicit FutexHandOff(bool isTimed)
        : mRequest(isTimed), mDone(isTimed), mWorker([this] { work(); }) {}
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

/** A queue of tasks with a worker, as the engine has, and a caller that waits for each. */
class TaskHandOff {
public:
    TaskHandOff() : mWorker([this] { work(); }) {}
    ~TaskHandOff() {
        submit([this] { return mIsAlive = false, 0; });
        mWorker.join();
    }
    TaskHandOff(const TaskHandOff&) = delete;
    TaskHandOff& operator=(const TaskHandOff&) = delete;

    void frame() {
        submit([] {
            return processFrame(), 0;
        }).wait_until(std::chrono::system_clock::now() + kLimit);
    }

private:
    static constexpr std::chrono::seconds kLimit{100};

    template <typename FUNC>
    std::future<int> submit(FUNC func) {
        std::packaged_task<int()> task(func);
        std::future<int> result = task.get_future();
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mTasks.push_back(std::move(task));
        }
        mCondition.notify_one();
        return result;
    }

    void work() {
        std::unique_lock<std::mutex> lock(mMutex);
        while (mIsAlive) {
            if (mTasks.empty()) {
                mCondition.wait_until(lock, std::chrono::steady_clock::now() + kLimit);
            } else {
                std::packaged_task<int()> task = std::move(mTasks.front());
                mTasks.pop_front();
                lock.unlock();
                task();
                lock.lock();
            }
        }
    }

    std::mutex mMutex;
    std::condition_variable mCondition;
    std::deque<std::packaged_task<int()>> mTasks;
    bool mIsAlive = true;  // the worker's
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

void engine(benchmark::State& state, Place place) {
    Affinity affinity(place);
    const auto engine = bench::startEngine({});
    affinity.callerGoes();
    Aisr::BufferInfo info = bench::frame(1);
    measure(state, [&] { engine->enhance(info); });
}

void floor(benchmark::State& state, Place place, bool isTimed) {
    Affinity affinity(place);
    FutexHandOff handOff(isTimed);
    affinity.callerGoes();
    measure(state, [&] { handOff.frame(); });
}

void tasks(benchmark::State& state, Place place) {
    Affinity affinity(place);
    TaskHandOff handOff;
    affinity.callerGoes();
    measure(state, [&] { handOff.frame(); });
}

void direct(benchmark::State& state) {
    measure(state, &processFrame);
}

void registerBenchmarks() {
    using benchmark::RegisterBenchmark;
    const auto add = [](const char* name, Place place, auto measurement) {
        RegisterBenchmark(name, [=](benchmark::State& state) {
            measurement(state, place);
        })->UseRealTime();
    };
    const auto bare = [](auto& state, Place place) { floor(state, place, false); };
    const auto timed = [](auto& state, Place place) { floor(state, place, true); };
    add("engineTwoCores", Place::kTwoCores, &engine);
    add("bareTwoCores", Place::kTwoCores, bare);
    add("tasksTwoCores", Place::kTwoCores, &tasks);
    add("engineOneCore", Place::kOneCore, &engine);
    add("bareOneCore", Place::kOneCore, bare);
    add("tasksOneCore", Place::kOneCore, &tasks);
    add("timedOneCore", Place::kOneCore, timed);
    RegisterBenchmark("direct", &direct)->UseRealTime();
}

}  // namespace

int main(int argc, char** argv) {
    bench::setUpService();
    registerBenchmarks();
    using Wanted = bench::Comparison::Wanted;
    return bench::runComparisons(
        "A frame through `AisrEngine::enhance`",
        {{"frame, two cores", "engineTwoCores", "bare futex hand-off", "bareTwoCores",
          Wanted::kAtMost, 1.25},
         {"frame, two cores", "engineTwoCores", "hand-off of a standard task", "tasksTwoCores",
          Wanted::kAtMost, 1.25},
         {"frame, one core", "engineOneCore", "futex hand-off with time limits", "timedOneCore",
          Wanted::kAtMost, 1.25},
         {"frame, one core", "engineOneCore", "hand-off of a standard task", "tasksOneCore",
          Wanted::kAtMost, 1.25},
         {"frame, one core", "engineOneCore", "bare futex hand-off", "bareOneCore"},
         {"frame, one core", "engineOneCore", "the entries called directly", "direct"}},
        {"The processing library does nothing, and the logs are off. A hand-off is two threads "
         "that wake each other by futex and sleep until woken, there and back. That of a standard "
         "task has the engine's queue of packaged tasks, mutex, condition variable and future, and "
         "nothing else: what it takes more than the bare one is the standard library's. Engine and "
         "hand-offs are pinned alike."},
        argc, argv);
}
