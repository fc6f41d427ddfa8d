// SPDX-License-Identifier: Apache-2.0
#include "Usage.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "Report.h"

// Sanitizers have an allocator of their own, and then this function.
extern "C" __attribute__((weak)) size_t __sanitizer_get_current_allocated_bytes();

namespace checker {
namespace {

int64_t entriesOf(const char* folder) {
    std::error_code error;
    const std::filesystem::directory_iterator entries(folder, error);
    return std::distance(begin(entries), end(entries));
}

int64_t heapInUse() {
    if (__sanitizer_get_current_allocated_bytes != nullptr) {
        return static_cast<int64_t>(__sanitizer_get_current_allocated_bytes());
    }
    const struct mallinfo2 info = mallinfo2();
    return static_cast<int64_t>(info.uordblks + info.hblkhd);
}

/** What of each resource, growing per call, is beyond what rounding and the machine can do. */
struct Threshold {
    const char* name;
    int64_t perCall; /**< Least growth for each call. */
    int64_t atLeast; /**< Least growth in each half. */
    const char* unit;
};
constexpr Threshold kThresholds[kResources] = {
    {"the heap", 32, 1, " bytes"},
    {"resident memory", 1024, 256 * 1024, " bytes"},
    {"mapped memory", 1024, 1024 * 1024, " bytes"},
    {"open descriptors", 0, 1, ""},
    {"mappings", 0, 1, ""},
    {"threads", 0, 1, ""},
};

}  // namespace

int64_t threadCount() {
    return entriesOf("/proc/self/task");
}

Usage measureUsage() {
    Usage usage{};
    usage[kHeap] = heapInUse();
    int64_t addresses = 0;
    int64_t resident = 0;
    std::ifstream("/proc/self/statm") >> addresses >> resident;
    usage[kResident] = resident * sysconf(_SC_PAGESIZE);
    usage[kAddresses] = addresses * sysconf(_SC_PAGESIZE);
    usage[kDescriptors] = entriesOf("/proc/self/fd");
    std::ifstream maps("/proc/self/maps");
    usage[kMappings] = std::count(std::istreambuf_iterator<char>(maps), {}, '\n');
    usage[kThreads] = threadCount();
    return usage;
}

bool reportGrowth(const Usage& start, const Usage& middle, const Usage& end, int calls,
                  const char* unit, bool isBreach) {
    bool hasGrown = false;
    for (size_t i = 0; i < kResources; ++i) {
        const Threshold& threshold = kThresholds[i];
        const int64_t least = std::max(threshold.perCall * calls / 2, threshold.atLeast);
        const int64_t growth = end[i] - start[i];
        const bool isSteady = middle[i] - start[i] >= least && end[i] - middle[i] >= least;
        // A leak of the heap shows in what is resident and mapped too.
        const bool isConsequence = (i == kResident || i == kAddresses) && hasGrown;
        if (!isSteady || isConsequence) {
            continue;
        }
        hasGrown = true;
        const int64_t perCall = growth / calls;
        std::string text = std::string(threshold.name) + " grew by " + std::to_string(growth) +
                           threshold.unit + " in " + std::to_string(calls) + " " + unit + "s";
        if (threshold.perCall > 0) {
            text += ", " + std::to_string(perCall) + " each";
        }
        isBreach ? fail(text) : warn(text);
    }
    return hasGrown;
}

}  // namespace checker
