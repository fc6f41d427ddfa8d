// SPDX-License-Identifier: Apache-2.0
// Calls that have to cost next to nothing: the question before each frame, a frame that is refused,
// and a log statement that is switched off.
#include <benchmark/benchmark.h>

#include <mutex>
#include <thread>

#include "client/DisplayEngineManager.h"
#include "nothing/NothingProcess.h"
#include "support/EngineSetup.h"
#include "support/Process.h"

#define LOG_TAG "bench"
#include "common/Log.h"

namespace {

void need(benchmark::State& state) {
    const android::sp<DisplayEngineManager> manager = new DisplayEngineManager();
    benchmark::DoNotOptimize(manager->needVideoEnhance());
    for (auto _ : state) {
        benchmark::DoNotOptimize(manager->needVideoEnhance());
    }
}
BENCHMARK(need);

/** The peer: an atomic load behind a function of another shared library. */
void load(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(nothingProcessed());
    }
}
BENCHMARK(load);

void lockUnlock(benchmark::State& state) {
    std::mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        benchmark::ClobberMemory();
        mutex.unlock();
    }
}
BENCHMARK(lockUnlock);

void suppressed(benchmark::State& state) {
    const Aisr::BufferInfo info = bench::frame(1);
    for (auto _ : state) {
        DE_LOGD("%s", AisrAlgorithm::toString(info).c_str());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(suppressed);

void measureRefusals(benchmark::State& state, AisrEngine& engine, Aisr::BufferInfo info) {
    const uint64_t processed = gNothingProcessed;
    for (auto _ : state) {
        engine.enhance(info);
    }
    if (gNothingProcessed != processed) {
        state.SkipWithError("a frame was not refused");
    }
}

/** Two slow frames latch the overload of their stream. */
void overloaded(benchmark::State& state) {
    bench::EngineConfig config;
    config.overloadMs = 2;
    config.overloadCount = 2;
    const auto engine = bench::startEngine(config);
    Aisr::BufferInfo info = bench::frame(1);
    gNothingDelayMs = 3;
    engine->enhance(info);
    engine->enhance(info);
    gNothingDelayMs = 0;
    measureRefusals(state, *engine, info);
}
BENCHMARK(overloaded);

/** One fast interval is enough for this monitor, and nothing lifts its verdict. */
void unhealthy(benchmark::State& state) {
    bench::EngineConfig config;
    config.monitorMaxFps = 2000;
    config.monitorTolerance = 0;
    config.monitorRestore = -1;
    const auto engine = bench::startEngine(config);
    Aisr::BufferInfo info = bench::frame(1);
    for (int i = 0; i <= config.monitorMaxFps; ++i) {
        engine->enhance(info);
    }
    measureRefusals(state, *engine, info);
}
BENCHMARK(unhealthy);

/** One frame in processing and one in the queue; the warning that each refusal gives is counted. */
void busy(benchmark::State& state) {
    bench::EngineConfig config;
    config.abortMs = config.overloadMs = 2;
    const auto engine = bench::startEngine(config);
    Aisr::BufferInfo info = bench::frame(1);
    gNothingDelayMs = INT32_MAX;
    engine->enhance(info);
    engine->enhance(info);
    measureRefusals(state, *engine, info);
    gNothingDelayMs = 0;
}
BENCHMARK(busy);

}  // namespace

int main(int argc, char** argv) {
    bench::setUpService();
    std::thread([] {}).join();  // A process with threads: its locks are atomic operations.
    return bench::run(argc, argv);
}
