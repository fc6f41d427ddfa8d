// SPDX-License-Identifier: Apache-2.0
#include "Report.h"

#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <system_error>

namespace checker {
namespace {

/** A fault farther from watched memory than this is a stray pointer. */
constexpr int64_t kNear = 1 << 20;

SharedState* gState = nullptr;
std::atomic<uint32_t> gWatchedCount{0};
thread_local int32_t tPlace = -1;

/** Gives the thread's place back when the thread ends. */
struct PlaceOwner {
    ~PlaceOwner() { gState->places[tPlace].isTaken = false; }
};

/** This thread's; the last place serves the threads that are too many, which no check has. */
SharedState::Place& ownPlace() {
    if (tPlace < 0) {
        tPlace = 0;
        while (gState->places[tPlace].isTaken.exchange(true) &&
               tPlace + 1 < static_cast<int32_t>(std::size(gState->places))) {
            ++tPlace;
        }
        static thread_local PlaceOwner owner;
    }
    return gState->places[tPlace];
}

SharedState::Access accessOf([[maybe_unused]] const void* context) {
#ifdef __x86_64__
    constexpr greg_t kWriteBit = 2;
    const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext.gregs;
    return (registers[REG_ERR] & kWriteBit) != 0 ? SharedState::kWrote : SharedState::kRead;
#else
    return SharedState::kTouched;
#endif
}

/** The process dies of the signal once the handler has returned. */
void onFatalSignal(int signal, siginfo_t* info, void* context) {
    if (gState->signal.exchange(signal) == 0) {
        gState->place = tPlace >= 0 && gState->places[tPlace].isActive ? tPlace : -1;
        if (signal == SIGSEGV || signal == SIGBUS) {
            gState->address = reinterpret_cast<uintptr_t>(info->si_addr);
            gState->access = accessOf(context);
        }
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void report(const char* kind, const nlohmann::json& value) {
    using Json = nlohmann::json;
    const std::string line =
        Json({{kind, value}}).dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    const size_t at = gState->reportSize.fetch_add(line.size());
    if (at + line.size() <= sizeof gState->report) {
        std::memcpy(gState->report + at, line.data(), line.size());
    }
}

std::string describe(const SharedState::Place& place) {
    return place.call + (place.frame >= 0 ? ", frame " + std::to_string(place.frame) : "") +
           (place.shape.width > 0 ? ", " + text(place.shape) : "");
}

/** How far `address` is from the memory; 0 inside. */
int64_t distance(const WatchedMemory& memory, uintptr_t address) {
    const auto offset = static_cast<int64_t>(address - memory.begin);
    return offset < 0 ? -offset : std::max<int64_t>(offset - memory.size + 1, 0);
}

/** "wrote byte 3 behind the luma plane" */
std::string describeAccess(const SharedState& state, const WatchedMemory& memory) {
    constexpr const char* kWords[] = {"touched", "read", "wrote"};
    const auto offset = static_cast<int64_t>(state.address - memory.begin);
    const std::string byte = std::string(kWords[state.access]) + " byte ";
    return (offset < 0 ? byte + std::to_string(-offset) + " in front of the "
            : offset >= memory.size
                ? byte + std::to_string(offset - memory.size + 1) + " behind the "
                : byte + std::to_string(offset) + " of the ") +
           memory.name + (memory.isTakenAway ? ", which was no longer the library's" : "");
}

}  // namespace

std::string text(const FrameShape& shape) {
    return std::to_string(shape.width) + "x" + std::to_string(shape.height) + ", stride " +
           std::to_string(shape.stride);
}

std::string oneDecimal(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

SharedState* mapState(int descriptor) {
    void* memory =
        mmap(nullptr, sizeof(SharedState), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "shared memory");
    }
    return static_cast<SharedState*>(memory);
}

void useState(SharedState* state) {
    gState = state;
    static char stack[1 << 16];
    const stack_t alternate = {stack, 0, sizeof stack};
    sigaltstack(&alternate, nullptr);
    struct sigaction action = {};
    action.sa_sigaction = onFatalSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    for (const int signal : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS}) {
        sigaction(signal, &action, nullptr);
    }
}

void note(const std::string& text) {
    report("note", text);
}

void warn(const std::string& text) {
    report("warn", text);
}

void fail(const std::string& text) {
    report("fail", text);
}

void reportTimes(const SizeTimes& times) {
    report("times", times);
}

void finish() {
    gState->isDone = true;
}

void failAndStop(const std::string& text) {
    fail(text);
    finish();
    _exit(0);
}

Doing::Doing(const std::string& call, int64_t frame, const FrameShape& shape) {
    SharedState::Place& place = ownPlace();
    std::snprintf(place.call, sizeof place.call, "%s", call.c_str());
    place.frame = frame;
    place.shape = shape;
    place.isActive = true;
    ++gState->progress;
}

Doing::~Doing() {
    ownPlace().isActive = false;
    ++gState->progress;
}

void watchMemory(const WatchedMemory& memory) {
    for (WatchedMemory& watched : gState->watched) {
        if (watched.begin == memory.begin) {
            watched = memory;
            return;
        }
    }
    gState->watched[gWatchedCount++ % std::size(gState->watched)] = memory;
}

std::string describePlaces(const SharedState& state) {
    std::string words;
    for (const SharedState::Place& place : state.places) {
        words += place.isActive ? (words.empty() ? "" : " and ") + describe(place) : "";
    }
    return words.empty() ? "the check" : words;
}

std::string describeDeath(const SharedState& state, int signal) {
    const char* abbreviation = sigabbrev_np(signal);
    const std::string name = std::string("SIG") + (abbreviation != nullptr ? abbreviation : "?");
    const std::string who = state.signal == 0 ? describePlaces(state)
                            : state.place >= 0
                                ? describe(state.places[state.place])
                                : "another thread (during " + describePlaces(state) + ")";
    if (state.address == 0 && signal != SIGSEGV) {
        return name + " in " + who;
    }
    const auto* nearest =
        std::min_element(std::begin(state.watched), std::end(state.watched),
                         [&](const WatchedMemory& a, const WatchedMemory& b) {
                             return distance(a, state.address) < distance(b, state.address);
                         });
    if (nearest->begin != 0 && distance(*nearest, state.address) < kNear) {
        const bool isShapeKnown = who.find(text(nearest->shape)) != std::string::npos;
        return who + ": " + describeAccess(state, *nearest) +
               (isShapeKnown || nearest->shape.width == 0 ? "" : ", " + text(nearest->shape)) +
               " (" + name + ")";
    }
    char address[32];
    std::snprintf(address, sizeof address, " at address 0x%llx",
                  static_cast<unsigned long long>(state.address));
    return name + address + " in " + who;
}

}  // namespace checker
