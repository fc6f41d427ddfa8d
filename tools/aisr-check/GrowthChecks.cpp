// SPDX-License-Identifier: Apache-2.0
// What grows with the frames.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "Library.h"

// Sanitizers have an allocator of their own, and then this function.
extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();

namespace checker {
namespace {

/** Least growth per frame that is no rounding, and least growth in all that is the library's. */
struct Resource {
    const char* name;
    int64_t perFrame;
    int64_t atLeast;
};
constexpr Resource kResources[] = {
    {"the heap, in bytes,", 32, 0},           {"resident memory, in bytes,", 1024, 512 * 1024},
    {"the number of open descriptors", 0, 2}, {"the number of mappings", 0, 2},
    {"the number of threads", 0, 2},
};
using Usage = std::array<int64_t, std::size(kResources)>;

int64_t entriesOf(const char* folder) {
    const std::filesystem::directory_iterator entries(folder);
    return std::distance(begin(entries), end(entries));
}

Usage measure() {
    const struct mallinfo2 info = mallinfo2();
    auto heap = static_cast<int64_t>(info.uordblks + info.hblkhd);
    int64_t pages = 0;
    if (__sanitizer_get_current_allocated_bytes != nullptr) {
        // What is resident says nothing then: freed memory is kept for a while.
        heap = static_cast<int64_t>(__sanitizer_get_current_allocated_bytes());
    } else {
        std::ifstream("/proc/self/statm") >> pages >> pages;  // the second figure
    }
    std::ifstream maps("/proc/self/maps");
    return {heap, pages * sysconf(_SC_PAGESIZE), entriesOf("/proc/self/fd"),
            std::count(std::istreambuf_iterator<char>(maps), {}, '\n'),
            entriesOf("/proc/self/task")};
}

}  // namespace

void checkGrowth(const Settings& settings) {
    Library library(settings);
    library.start();
    // Small frames, for what is leaked is seldom a matter of their size.
    Frame small({514, 514, 576});
    Frame tiny({64, 64, 64});
    const bool isTiny = settings.isQuick && library.enhance(tiny) == AISR_SUCCESS;
    Frame& frame = isTiny ? tiny : small;
    frame.next();
    const auto run = [&](int frames) {
        for (int i = 0; i < frames; ++i) {
            library.mustEnhance(frame);
            frame.next();
        }
        return measure();
    };
    const int half = settings.count(300, 200);
    const Usage start = run(half / 2);
    const Usage middle = run(half);
    const Usage end = run(half);
    library.end();
    bool isHeap = false;
    for (size_t i = 0; i < start.size(); ++i) {
        const Resource& resource = kResources[i];
        const int64_t least = std::max(resource.perFrame * half, resource.atLeast / 2);
        const int64_t growth = end[i] - start[i];
        // In both halves: what is set up once is no growth. A leak of the heap is resident too.
        const bool isGrowing = middle[i] - start[i] >= least && end[i] - middle[i] >= least;
        if (isGrowing && !(isHeap && i == 1)) {
            isHeap = isHeap || i == 0;
            fail(std::string(resource.name) + " grew by " + std::to_string(growth) + " in " +
                 std::to_string(2 * half) + " frames" +
                 (resource.perFrame > 0 ? ", " + std::to_string(growth / (2 * half)) + " each"
                                        : ""));
        }
    }
    note(std::to_string(2 * half) + " frames");
}

}  // namespace checker
