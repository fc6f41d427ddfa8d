// SPDX-License-Identifier: Apache-2.0
// Where a check's process is, in memory that it shares with the tool: it outlives a crash, and is
// readable during a hang.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace checker {

struct FrameShape {
    int32_t width = 0;
    int32_t height = 0;
    int32_t stride = 0;

    /** Rows of the chroma plane. */
    int32_t chromaRows() const { return (height + 1) / 2; }
};

/** "768x576, stride 832" */
std::string text(const FrameShape& shape);

/** Memory that the library is not to reach beyond, or not to touch at all any more. */
struct WatchedMemory {
    uintptr_t begin = 0;
    size_t size = 0;
    const char* name = ""; /**< A literal: "luma plane". */
    FrameShape shape;      /**< Of the frame whose plane it is. */
    bool isTakenAway = false;
};

struct SharedState {
    static constexpr size_t kNameLength = 64;

    /** What a thread is doing. */
    struct Place {
        std::atomic<bool> isActive{false};
        char call[kNameLength] = "";
        int64_t frame = -1; /**< Index, or -1 outside frames. */
        FrameShape shape;
    };

    enum class Access : int32_t { kUnknown, kRead, kWrite };

    /** The signal that ended the process, told by its handler. */
    struct Fault {
        std::atomic<int32_t> signal{0};
        int32_t place = -1; /**< Of the thread; -1 for one of the library's own. */
        uint64_t address = 0;
        Access access = Access::kUnknown;
        char memory[kNameLength] = ""; /**< The watched memory that is near; empty for none. */
        FrameShape shape;
        int64_t offset = 0; /**< From its first byte. */
        int64_t size = 0;
        bool isTakenAway = false;
    };

    std::atomic<uint32_t> progress{0}; /**< Rises with every call of an entry. */
    std::atomic<bool> isDone{false};   /**< The check ended by itself. */
    Place places[8];
    Fault fault;
};

// In the check's process.

/** Makes `state` this process's, and has fatal signals written there. */
void useSharedState(SharedState* state);
SharedState& sharedState();

/** Says, as long as it lives, what this thread is doing. */
class Doing {
public:
    /** `frame` is an index, or -1. */
    explicit Doing(const char* call, int64_t frame = -1, const FrameShape& shape = {});
    ~Doing();
    Doing(const Doing&) = delete;
    Doing& operator=(const Doing&) = delete;
};

/** Has faults near `memory` told by its name. The last few are kept. */
void watchMemory(const WatchedMemory& memory);

// In the tool.

/** "AisrProcess, frame 3, 768x576, stride 832"; empty when nothing is under way. */
std::string describePlaces(const SharedState& state);

/** What the process died of; `signal` is what it was seen to die of. */
std::string describeDeath(const SharedState& state, int signal);

}  // namespace checker
