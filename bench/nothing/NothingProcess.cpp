// SPDX-License-Identifier: Apache-2.0
// A processing library that does nothing with a frame, so that what is left of a frame's time is
// the engine's own. It can be told to take its time, for the states that the engine gets into then.
#include "nothing/NothingProcess.h"

#include <chrono>
#include <thread>

std::atomic<uint64_t> gNothingProcessed{0};
std::atomic<int32_t> gNothingDelayMs{0};
std::atomic<void (*)()> gNothingWork{nullptr};
std::atomic<void (*)()> gNothingDeinitWork{nullptr};

namespace {

void call(const std::atomic<void (*)()>& function) {
    if (void (*const work)() = function.load(std::memory_order_acquire); work != nullptr) {
        work();
    }
}

}  // namespace

extern "C" {

NOTHING_ENTRY int32_t AisrInit(void** context) {
    static int session;
    *context = &session;
    return 0;
}

NOTHING_ENTRY int32_t AisrDeinit(void** context) {
    call(gNothingDeinitWork);
    *context = nullptr;
    return 0;
}

NOTHING_ENTRY int32_t AisrProcess(void** /*context*/) {
    int32_t waited = 0;
    while (waited < gNothingDelayMs.load(std::memory_order_relaxed)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ++waited;
    }
    call(gNothingWork);
    gNothingProcessed.store(gNothingProcessed.load(std::memory_order_relaxed) + 1,
                            std::memory_order_release);
    return 0;
}

NOTHING_ENTRY int32_t AisrSetParam(void** /*context*/, int32_t /*tag*/, const void* /*data*/,
                                   uint64_t /*size*/) {
    return 0;
}

NOTHING_ENTRY int32_t AisrDoClean() {
    return 0;
}

NOTHING_ENTRY int32_t AisrGetParam() {
    return 0;
}

}  // extern "C"

uint64_t nothingProcessed() {
    return gNothingProcessed.load(std::memory_order_acquire);
}
