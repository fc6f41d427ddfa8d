// SPDX-License-Identifier: Apache-2.0
// What a check's process tells the tool, in memory that the two share: it outlives a crash, and is
// readable during a hang.
#pragma once

#include <atomic>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace checker {

struct FrameShape {
    int32_t width = 0;
    int32_t height = 0;
    int32_t stride = 0;

    int32_t chromaRows() const { return (height + 1) / 2; }
};

/** "768x576, stride 832" */
std::string text(const FrameShape& shape);
/** "3.1" */
std::string oneDecimal(double value);

/** The times of the frames of one size, in milliseconds. */
struct SizeTimes {
    FrameShape shape;
    int frames = 0; /**< Without the first. */
    double first = 0, least = 0, lowerQuartile = 0, median = 0, upperQuartile = 0;
    double high = 0; /**< 99 % take no longer. */
    double largest = 0;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FrameShape, width, height, stride)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(SizeTimes, shape, frames, first, least, lowerQuartile, median,
                                   upperQuartile, high, largest)

/** Memory that the library is not to reach beyond, or not to touch any more. */
struct WatchedMemory {
    uintptr_t begin = 0;
    int64_t size = 0;
    char name[32] = ""; /**< "luma plane" */
    FrameShape shape;   /**< Of the frame whose plane it is. */
    bool isTakenAway = false;
};

struct SharedState {
    /** What a thread is doing. */
    struct Place {
        std::atomic<bool> isTaken{false};  /**< By a thread. */
        std::atomic<bool> isActive{false}; /**< The thread is doing something. */
        char call[64] = "";
        int64_t frame = -1; /**< Index, or -1 outside frames. */
        FrameShape shape;
    };
    enum Access { kTouched, kRead, kWrote };

    std::atomic<uint32_t> progress{0}; /**< Rises with every call of an entry. */
    std::atomic<bool> isDone{false};   /**< The check ended by itself. */
    Place places[8];
    WatchedMemory watched[16];

    // The signal that ended the process, told by its handler.
    std::atomic<int32_t> signal{0};
    int32_t place = -1; /**< Of the thread; -1 for one that the check has not started. */
    uintptr_t address = 0;
    Access access = kTouched;

    std::atomic<size_t> reportSize{0};
    char report[1 << 16]; /**< Lines of JSON, each {KIND: VALUE}. */
};

/** The descriptor by which a check's process is given the memory. */
constexpr int kStateDescriptor = 3;
/** Throws std::system_error. */
SharedState* mapState(int descriptor);

// In the check's process; any thread.

/** Makes `state` this process's, and has fatal signals written there. */
void useState(SharedState* state);

/** Something worth telling of a check that has passed. */
void note(const std::string& text);
/** Something that is allowed, or that may be the machine's doing. */
void warn(const std::string& text);
/** A breach of a rule; the check goes on. */
void fail(const std::string& text);
void reportTimes(const SizeTimes& times);
/** The check has reported all there is. */
void finish();
/** A breach of a rule that the check cannot go on with: its process ends here. */
[[noreturn]] void failAndStop(const std::string& text);

/** Says, as long as it lives, what this thread is doing. */
class Doing {
public:
    /** `frame` is an index, or -1. */
    explicit Doing(const std::string& call, int64_t frame = -1, const FrameShape& shape = {});
    ~Doing();
    Doing(const Doing&) = delete;
    Doing& operator=(const Doing&) = delete;
};

/** Has faults near `memory` told by its name. The last few are kept. */
void watchMemory(const WatchedMemory& memory);

// In the tool.

/** "AisrProcess, frame 3, 768x576, stride 832" */
std::string describePlaces(const SharedState& state);
/** What the process died of; `signal` is what it was seen to die of. */
std::string describeDeath(const SharedState& state, int signal);

}  // namespace checker
