// SPDX-License-Identifier: Apache-2.0
// The time of a frame through AisrEngine::enhance(), with a processing library that does nothing
// and the logs off, beside the least that handing it to another thread and waiting for it costs,
// and beside direct calls of the library's entries.
//
// The bare hand-off is two threads and two words in memory. The caller sets one word and wakes the
// worker; the worker calls the same two entries, sets the other word and wakes the caller. Both
// sleep in the kernel until their word is set, since neither may spin beside a decoder, so a frame
// takes as many wake-ups and context switches as the engine's. There is no queue, no clock, no lock
// and no allocation, and the futexes are private to the process.
//
// The timed hand-off is the same with a time limit on both waits, as the engine has one. The task
// hand-off submits a packaged task to a queue and waits for its future, as the engine does, and
// does nothing else. It makes two system calls more than the bare one: one for the mutex that the
// worker takes back in its condition wait, and one in the promise.
//
// Each is measured in two places, with the same affinities. On two cores, caller and worker have
// one each, and most of the time is the waking of an idle core. On one core, both are pinned to the
// same one: a hand-off is a context switch, and the engine's own work weighs most.
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
#include "support/EngineSetup.h"
#include "support/Process.h"

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
int processFrame() {
    static void* context;
    char list[24] = {};
    benchmark::DoNotOptimize(AisrSetParam(&context, 2, list, sizeof(list)));
    return AisrProcess(&context);
}

/** A worker and two words. */
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
        submit([this] {
            mIsAlive = false;
            return 0;
        });
        mWorker.join();
    }
    TaskHandOff(const TaskHandOff&) = delete;
    TaskHandOff& operator=(const TaskHandOff&) = delete;

    void frame() {
        const std::future<int> result = submit(&processFrame);
        result.wait_until(std::chrono::system_clock::now() + kLimit);
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
BENCHMARK_CAPTURE(engine, twoCores, Place::kTwoCores)->UseRealTime();
BENCHMARK_CAPTURE(engine, oneCore, Place::kOneCore)->UseRealTime();

void bare(benchmark::State& state, Place place, bool isTimed) {
    Affinity affinity(place);
    FutexHandOff handOff(isTimed);
    affinity.callerGoes();
    measure(state, [&] { handOff.frame(); });
}
BENCHMARK_CAPTURE(bare, twoCores, Place::kTwoCores, false)->UseRealTime();
BENCHMARK_CAPTURE(bare, twoCoresTimed, Place::kTwoCores, true)->UseRealTime();
BENCHMARK_CAPTURE(bare, oneCore, Place::kOneCore, false)->UseRealTime();
BENCHMARK_CAPTURE(bare, oneCoreTimed, Place::kOneCore, true)->UseRealTime();

void tasks(benchmark::State& state, Place place) {
    Affinity affinity(place);
    TaskHandOff handOff;
    affinity.callerGoes();
    measure(state, [&] { handOff.frame(); });
}
BENCHMARK_CAPTURE(tasks, twoCores, Place::kTwoCores)->UseRealTime();
BENCHMARK_CAPTURE(tasks, oneCore, Place::kOneCore)->UseRealTime();

void direct(benchmark::State& state) {
    measure(state, &processFrame);
}
BENCHMARK(direct)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    bench::setUpService();
    return bench::run(argc, argv);
}
