// SPDX-License-Identifier: Apache-2.0
// Heap allocations of a frame. All allocations of the process are counted, on the caller's thread
// and on the others; while frames are offered, the only other one is the worker.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "common/DisplayEngineCleanCommon.h"
#include "nothing/NothingProcess.h"
#include "support/EngineSetup.h"
#include "support/Process.h"

// The C library's own functions behind those that are replaced here. Operator new calls malloc().
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace {

std::atomic<uint64_t> gAllocations{0};
thread_local uint64_t tAllocations = 0;

void count() {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    ++tAllocations;
}

}  // namespace

extern "C" {

void* malloc(size_t size) {
    count();
    return __libc_malloc(size);
}

void* calloc(size_t number, size_t size) {
    count();
    return __libc_calloc(number, size);
}

void* realloc(void* block, size_t size) {
    count();
    return __libc_realloc(block, size);
}

void* aligned_alloc(size_t alignment, size_t size) {
    count();
    return __libc_memalign(alignment, size);
}

}  // extern "C"

namespace {

constexpr int kFrames = 3200;  // A multiple of the 32 tasks that fill a block of the queue.

/** Allocations per frame of this size, and those of the geometry text that each frame needs. */
void frames(benchmark::State& state, int32_t width, int32_t height, bool isLogged) {
    const auto engine = bench::startEngine({});
    Aisr::BufferInfo info = bench::frame(1);
    info.width = info.stride = width;
    info.height = height;
    uint64_t caller = tAllocations;
    { const std::string text = AisrAlgorithm::rectToString(info); }
    const uint64_t text = tAllocations - caller;

    g_delogdEnable = isLogged;
    engine->enhance(info);
    const uint64_t processed = gNothingProcessed;
    caller = tAllocations;
    uint64_t all = gAllocations;
    for (auto _ : state) {
        engine->enhance(info);
    }
    caller = tAllocations - caller;
    all = gAllocations - all;
    g_delogdEnable = false;
    if (gNothingProcessed - processed != kFrames) {
        state.SkipWithError("a frame was refused, failed or expired");
    }
    const auto perFrame = [](uint64_t count) { return static_cast<double>(count) / kFrames; };
    state.counters["all"] = perFrame(all);
    state.counters["caller"] = perFrame(caller);
    state.counters["worker"] = perFrame(all - caller);
    state.counters["text"] = static_cast<double>(text);
}
BENCHMARK_CAPTURE(frames, usual, 1280, 720, false)->Iterations(kFrames)->Repetitions(1);
BENCHMARK_CAPTURE(frames, longText, INT32_MAX, INT32_MAX, false)
    ->Iterations(kFrames)
    ->Repetitions(1);
BENCHMARK_CAPTURE(frames, logged, 1280, 720, true)->Iterations(kFrames)->Repetitions(1);

}  // namespace

int main(int argc, char** argv) {
    bench::setUpService();
    return bench::run(argc, argv);
}
