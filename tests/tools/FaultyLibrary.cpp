// SPDX-License-Identifier: Apache-2.0
// A processing library that is sound but for the one fault that the environment variable FAULT
// names, or that it was built with.
#include <fcntl.h>
#include <sys/mman.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#ifdef FAULT_DATA
#define AisrDoClean AisrDoCleanFunction
#endif
#include "common/AisrProcess.h"
#undef AisrDoClean

namespace {

using std::chrono::milliseconds;

bool has(const char* fault) {
    static const char* const chosen = std::getenv("FAULT");
    return chosen != nullptr && std::strcmp(chosen, fault) == 0;
}

void sleepFor(milliseconds time) {
    std::this_thread::sleep_for(time);
}

struct Session {
    AisrBuffer frame{};
    const AisrBufferList* list = nullptr;
    std::mutex mutex;
    std::mutex processing;
    AisrBuffer cancelled{}; /**< Guarded by the mutex, like the next two. */
    bool isAnyCancelled = false;
    int cancels = 0;
    std::vector<uint8_t> scratch; /**< As large as the first frame. */
    std::thread late;

    ~Session() { joinLate(); }
    void joinLate() {
        if (late.joinable()) {
            late.join();
        }
    }
    bool isCancelled() {
        const std::lock_guard<std::mutex> lock(mutex);
        if (has("cancel-any") && isAnyCancelled) {
            return true;
        }
        const bool isNamed = cancelled.id == frame.id && cancelled.idx == frame.idx;
        const bool isStuck = has("cancel-sticks") && cancelled.id == frame.id;
        return (isNamed || isStuck) && !has("cancel-ignored");
    }
    void cancel(const AisrBuffer& named) {
        const std::lock_guard<std::mutex> lock(mutex);
        cancelled = named;
        isAnyCancelled = true;
        ++cancels;
    }
};

thread_local Session* tSession = nullptr;
int gInits = 0;

Session* sessionOf(void** context) {
    return has("thread-local") ? tSession : static_cast<Session*>(*context);
}

void leak(uint64_t index) {
    if (has("leak")) {
        [[maybe_unused]] void* volatile lost = std::malloc(64);
    } else if (has("leak-mapping") && index % 20 == 0) {
        // Two kinds in turn, so that the kernel joins no two.
        mmap(nullptr, 4096, index % 40 == 0 ? PROT_READ : PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS,
             -1, 0);
    } else if (has("leak-descriptor") && index % 100 == 0) {
        [[maybe_unused]] const int lost = open("/dev/null", O_RDONLY | O_CLOEXEC);
    }
}

void die() {
    if (has("exit")) {
        std::exit(0);
    } else if (has("exception")) {
        throw std::runtime_error("no model");
    } else if (has("crash")) {
        *static_cast<volatile int*>(nullptr) = 1;
    } else if (has("abort")) {
        std::thread([] { std::abort(); }).join();
    } else if (has("hang")) {
        sleepFor(std::chrono::hours(1));
    }
}

/** Reads and writes where it must not. */
void stray(Session* session, const AisrBuffer& frame) {
    auto* luma = static_cast<uint8_t*>(frame.y);
    auto* chroma = static_cast<uint8_t*>(frame.uv);
    const auto lumaSize = static_cast<size_t>(frame.stride) * static_cast<size_t>(frame.height);
    if (has("overrun") && frame.stride == 1344) {
        chroma[lumaSize / 2] ^= 1;
    } else if (has("underrun")) {
        luma[-1] ^= 1;
    } else if (has("read-behind")) {
        [[maybe_unused]] const uint8_t byte = const_cast<volatile uint8_t*>(luma)[lumaSize];
    } else if (has("padding") && frame.stride > frame.width) {
        luma[frame.width] ^= 1;
    } else if (has("late-write")) {
        session->late = std::thread([luma] {
            sleepFor(milliseconds(5));
            *const_cast<volatile uint8_t*>(luma) = *luma;
        });
    } else if (has("random") && frame.width > 1) {
        luma[0] = static_cast<uint8_t>(std::random_device()());
        luma[1] = static_cast<uint8_t>(std::random_device()());
    } else if (has("first-size")) {
        session->scratch.resize(session->scratch.empty() ? lumaSize : session->scratch.size());
        session->scratch.at(lumaSize - 1) = 0;
    }
}

int32_t processFrame(Session* session) {
    const std::lock_guard<std::mutex> lock(session->processing);
    const AisrBuffer& frame = session->frame;
    leak(frame.idx);
    die();
    const bool isLong = frame.width * frame.height >= 900'000;
    for (int part = 0; part < 16 && isLong; ++part) {
        if (session->isCancelled()) {
            return has("unknown-status") ? 7 : AISR_ERR_TIMEOUT;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(has("slow") ? 2200 : 160));
    }
    for (int32_t row = 0; row < frame.height; ++row) {
        static_cast<uint8_t*>(frame.y)[static_cast<ptrdiff_t>(row) * frame.stride] ^= 1;
    }
    stray(session, frame);
    return session->isCancelled() ? AISR_ERR_TIMEOUT : AISR_SUCCESS;
}

int32_t submit(Session* session, const AisrBufferList* list) {
    session->joinLate();
    if (has("list-kept") && session->list != nullptr) {
        [[maybe_unused]] volatile uint64_t count = session->list->count;
    }
    session->list = list;
    auto* node = reinterpret_cast<AisrBufferNode*>(list->ends.next);
    session->frame = node->buffer;
    if (has("record-changed")) {
        node->buffer.reserved = 1;
    }
    return session->frame.stride < session->frame.width ? AISR_ERR_BUF_COPY : AISR_SUCCESS;
}

int32_t cancel(Session* session, const AisrBuffer& frame) {
    if (has("cancel-blocks")) {
        sleepFor(milliseconds(100));
    } else if (has("cancel-waits")) {
        const std::lock_guard<std::mutex> lock(session->processing);
    }
    session->cancel(frame);
    return AISR_SUCCESS;
}

/** Runs code of the library beyond its life. */
struct AtUnload {
    ~AtUnload() {
        if (has("unload")) {
            std::abort();
        }
    }
} gAtUnload;

}  // namespace

int32_t AisrInit(void** context) {
    if (*context != nullptr || (has("init-once") && ++gInits > 1)) {
        return AISR_ERR_FATAL;
    }
    auto* session = new Session;
    tSession = session;
    *context = session;
    if (has("thread-stays")) {
        std::thread([] { sleepFor(std::chrono::hours(1)); }).detach();
    }
    return AISR_SUCCESS;
}

int32_t AisrDeinit(void** context) {
    Session* session = sessionOf(context);
    if (session == nullptr ||
        (has("deinit-after-cancel") && session->cancels > 0 && session->isCancelled())) {
        return AISR_ERR_FATAL;
    }
    delete session;
    *context = nullptr;
    return AISR_SUCCESS;
}

int32_t AisrProcess(void** context) {
    Session* session = sessionOf(context);
    return session != nullptr ? processFrame(session) : AISR_ERR_FATAL;
}

int32_t AisrSetParam(void** context, int32_t tag, const void* data, uint64_t size) {
    if (tag == AISR_TAG_SET_LOG_LEVEL && size == sizeof(int32_t)) {
        const bool isRefused = has("level-refused") && *static_cast<const int32_t*>(data) == 3;
        return isRefused ? AISR_ERR_FATAL : AISR_SUCCESS;
    }
    Session* session = sessionOf(context);
    const bool isCancel = tag == AISR_TAG_SET_TIMEOUT;
    const bool isList = tag == AISR_TAG_SET_BUF || (has("tags-obeyed") && !isCancel);
    const uint64_t wanted = isCancel ? sizeof(AisrBuffer) : sizeof(AisrBufferList);
    if (session == nullptr || !(isList || isCancel) || (size != wanted && !has("sizes-obeyed"))) {
        return AISR_ERR_FATAL;
    }
    return isCancel ? cancel(session, *static_cast<const AisrBuffer*>(data))
                    : submit(session, static_cast<const AisrBufferList*>(data));
}

#ifdef FAULT_DATA
extern "C" AISR_ENTRY const int AisrDoClean = 0;
#else
int32_t AisrDoClean(void**) {
    return AISR_SUCCESS;
}
#endif

#ifndef FAULT_MISSING
int32_t AisrGetParam(void**, int32_t, void*, uint64_t) {
    return AISR_ERR_FATAL;
}
#endif

#ifdef FAULT_EXTRA
extern "C" AISR_ENTRY int32_t aisrHelper() {
    return 0;
}
#endif

#ifdef FAULT_UNDEFINED
extern "C" int32_t aisrModel();
extern "C" AISR_ENTRY int32_t aisrUser() {
    return aisrModel();
}
#endif
