// SPDX-License-Identifier: Apache-2.0
#include "SharedState.h"

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace checker {
namespace {

constexpr size_t kWatched = 16;
/** A fault farther from watched memory than this is a stray pointer. */
constexpr int64_t kNear = 1 << 20;

SharedState* gState = nullptr;
WatchedMemory gWatched[kWatched];
std::atomic<size_t> gWatchedCount{0};
std::atomic<int32_t> gPlaceCount{0};
thread_local int32_t tPlace = -1;

void copyName(char* to, const char* name) {
    std::snprintf(to, SharedState::kNameLength, "%s", name);
}

SharedState::Access accessOf([[maybe_unused]] const void* context) {
#ifdef __x86_64__
    constexpr greg_t kWriteBit = 2;
    const auto* machine = static_cast<const ucontext_t*>(context);
    return (machine->uc_mcontext.gregs[REG_ERR] & kWriteBit) != 0 ? SharedState::Access::kWrite
                                                                  : SharedState::Access::kRead;
#else
    return SharedState::Access::kUnknown;
#endif
}

/** How far `address` is from the memory; 0 inside. */
int64_t distance(const WatchedMemory& memory, uintptr_t address) {
    const auto offset = static_cast<int64_t>(address - memory.begin);
    const auto size = static_cast<int64_t>(memory.size);
    return offset < 0 ? -offset : std::max<int64_t>(offset - size + 1, 0);
}

void locate(uintptr_t address, SharedState::Fault* fault) {
    const WatchedMemory* nearest = nullptr;
    const size_t count = std::min<size_t>(gWatchedCount, kWatched);
    for (size_t i = 0; i < count; ++i) {
        const WatchedMemory& memory = gWatched[i];
        if (distance(memory, address) < kNear &&
            (nearest == nullptr || distance(memory, address) < distance(*nearest, address))) {
            nearest = &memory;
        }
    }
    if (nearest != nullptr) {
        copyName(fault->memory, nearest->name);
        fault->shape = nearest->shape;
        fault->offset = static_cast<int64_t>(address - nearest->begin);
        fault->size = static_cast<int64_t>(nearest->size);
        fault->isTakenAway = nearest->isTakenAway;
    }
}

/** The process dies of the signal once the handler has returned. */
void onFatalSignal(int signal, siginfo_t* info, void* context) {
    SharedState::Fault& fault = gState->fault;
    if (fault.signal.exchange(signal) == 0) {
        fault.place = tPlace >= 0 && gState->places[tPlace].isActive ? tPlace : -1;
        if (signal == SIGSEGV || signal == SIGBUS) {
            fault.address = reinterpret_cast<uintptr_t>(info->si_addr);
            fault.access = accessOf(context);
            locate(fault.address, &fault);
        }
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

std::string describe(const SharedState::Place& place) {
    std::string words = place.call;
    if (place.frame >= 0) {
        words += ", frame " + std::to_string(place.frame);
    }
    if (place.shape.width > 0) {
        words += ", " + text(place.shape);
    }
    return words;
}

std::string signalName(int signal) {
    const char* name = sigabbrev_np(signal);
    return name != nullptr ? std::string("SIG") + name : "signal " + std::to_string(signal);
}

/** "wrote to byte 3 behind the luma plane, 768x576, stride 832" */
std::string describeAccess(const SharedState::Fault& fault) {
    const bool isRead = fault.access == SharedState::Access::kRead;
    const bool isWrite = fault.access == SharedState::Access::kWrite;
    std::string words = isRead ? "read" : isWrite ? "wrote" : "touched";
    if (fault.offset < 0) {
        words += " byte " + std::to_string(-fault.offset) + " in front of the ";
    } else if (fault.offset >= fault.size) {
        words += " byte " + std::to_string(fault.offset - fault.size + 1) + " behind the ";
    } else {
        words += " byte " + std::to_string(fault.offset) + " of the ";
    }
    words += fault.memory;
    if (fault.isTakenAway) {
        words += ", which was no longer the library's";
    }
    return words;
}

}  // namespace

std::string text(const FrameShape& shape) {
    return std::to_string(shape.width) + "x" + std::to_string(shape.height) + ", stride " +
           std::to_string(shape.stride);
}

void useSharedState(SharedState* state) {
    gState = state;
    constexpr size_t kStackSize = 1 << 16;
    static char* const stack = new char[kStackSize];
    const stack_t alternate = {stack, 0, kStackSize};
    sigaltstack(&alternate, nullptr);
    struct sigaction action = {};
    action.sa_sigaction = onFatalSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS}) {
        sigaction(signal, &action, nullptr);
    }
}

SharedState& sharedState() {
    return *gState;
}

Doing::Doing(const char* call, int64_t frame, const FrameShape& shape) {
    if (tPlace < 0) {
        // The threads beyond the last place share it; no check has so many at a time.
        tPlace = std::min<int32_t>(gPlaceCount++, std::size(gState->places) - 1);
    }
    SharedState::Place& place = gState->places[tPlace];
    copyName(place.call, call);
    place.frame = frame;
    place.shape = shape;
    place.isActive = true;
    ++gState->progress;
}

Doing::~Doing() {
    gState->places[tPlace].isActive = false;
    ++gState->progress;
}

void watchMemory(const WatchedMemory& memory) {
    const size_t count = std::min<size_t>(gWatchedCount, kWatched);
    for (size_t i = 0; i < count; ++i) {
        if (gWatched[i].begin == memory.begin) {
            gWatched[i] = memory;
            return;
        }
    }
    gWatched[gWatchedCount % kWatched] = memory;
    ++gWatchedCount;
}

std::string describePlaces(const SharedState& state) {
    std::string words;
    for (const SharedState::Place& place : state.places) {
        if (place.isActive) {
            words += (words.empty() ? "" : " and ") + describe(place);
        }
    }
    return words;
}

std::string describeDeath(const SharedState& state, int signal) {
    const SharedState::Fault& fault = state.fault;
    const std::string places = describePlaces(state);
    std::string who = fault.place >= 0 ? describe(state.places[fault.place])
                                       : std::string("a thread of the library's own");
    if (fault.signal == 0) {
        who = places.empty() ? "the check" : places;
    } else if (fault.place < 0 && !places.empty()) {
        who += " (during " + places + ")";
    }
    if (fault.memory[0] != '\0') {
        std::string words = who + ": " + describeAccess(fault);
        if (fault.place < 0 || state.places[fault.place].shape.width == 0) {
            words += fault.shape.width > 0 ? ", " + text(fault.shape) : "";
        }
        return words + " (" + signalName(signal) + ")";
    }
    char address[32] = "";
    if (fault.signal == SIGSEGV || fault.signal == SIGBUS) {
        std::snprintf(address, sizeof address, " at address 0x%llx",
                      static_cast<unsigned long long>(fault.address));
    }
    return signalName(signal) + address + " in " + who;
}

}  // namespace checker
