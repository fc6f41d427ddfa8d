// SPDX-License-Identifier: Apache-2.0
// Heap allocations of a frame. Everything that the process takes from the heap is counted here, on
// the caller's thread and on the others, which is the worker alone while frames are offered.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "common/DisplayEngineCleanCommon.h"
#include "nothing/NothingProcess.h"
#include "support/EngineSetup.h"
#include "support/Table.h"

// The C library's own functions behind those that are replaced here. Operator new ends in malloc().
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

/** Allocations of one frame, on average. */
struct PerFrame {
    double caller = 0;
    double worker = 0;
};

PerFrame countFrames(AisrEngine& engine, Aisr::BufferInfo info) {
    engine.enhance(info);
    const uint64_t caller = tAllocations;
    const uint64_t all = gAllocations;
    for (int i = 0; i < kFrames; ++i) {
        engine.enhance(info);
    }
    PerFrame result;
    const uint64_t ofCaller = tAllocations - caller;
    result.caller = static_cast<double>(ofCaller) / kFrames;
    result.worker = static_cast<double>(gAllocations - all - ofCaller) / kFrames;
    return result;
}

double countGeometryText(const Aisr::BufferInfo& info) {
    const uint64_t before = tAllocations;
    const std::string text = AisrAlgorithm::rectToString(info);
    return static_cast<double>(tAllocations - before);
}

std::string format(double count) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.2f", count);
    return text;
}

std::string format(const PerFrame& counts) {
    return format(counts.caller + counts.worker) + " (caller " + format(counts.caller) +
           ", worker " + format(counts.worker) + ")";
}

/** The sum without the growth of the queue, which takes a block for every 32 frames. */
double withoutGrowth(const PerFrame& counts) {
    return static_cast<double>(static_cast<int>(counts.caller + counts.worker));
}

bench::Verdict verdictOf(bool isMet) {
    return isMet ? bench::Verdict::kMet : bench::Verdict::kFailed;
}

}  // namespace

int main(int argc, char** argv) {
    bench::setUpService();
    const auto engine = bench::startEngine({});
    const uint64_t processed = gNothingProcessed;

    // The text of an ordinary size needs no memory of its own, a longer one does.
    const Aisr::BufferInfo usual = bench::frame(1);
    Aisr::BufferInfo large = bench::frame(2);
    large.width = large.height = large.stride = INT32_MAX;
    const double largeText = countGeometryText(large);

    const PerFrame ofUsual = countFrames(*engine, usual);
    const PerFrame ofLarge = countFrames(*engine, large);
    g_delogdEnable = true;
    const PerFrame logged = countFrames(*engine, usual);
    g_delogdEnable = false;

    bench::Table table{"Heap allocations of a frame", {}, {}};
    table.rows.push_back(
        {"a frame of 1280x720, logs off", format(ofUsual),
         "task, result, list node: 3; geometry text " + format(countGeometryText(usual)), "", "",
         "at most 4 beside the text",
         verdictOf(withoutGrowth(ofUsual) - countGeometryText(usual) <= 4)});
    table.rows.push_back(
        {"a frame whose geometry is long", format(ofLarge),
         "the same, and geometry text " + format(largeText), "", "", "no other text",
         verdictOf(largeText > 0 && withoutGrowth(ofLarge) - largeText == withoutGrowth(ofUsual))});
    table.rows.push_back({"a frame of 1280x720, debug messages on", format(logged), "", "", "", "",
                          bench::Verdict::kNone});
    table.notes.push_back(
        "The fraction is the queue's: it takes a block of memory for every 32 frames.");
    if (gNothingProcessed - processed != 3 * (kFrames + 1)) {
        std::fprintf(stderr, "a frame was refused, failed or expired\n");
        return 1;
    }
    return bench::deliver(table, argc, argv);
}
