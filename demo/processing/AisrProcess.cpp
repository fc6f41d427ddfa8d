// SPDX-License-Identifier: Apache-2.0
// The six entry points of the sample processing library. It is a library of its own: it shares
// nothing with the client library but the records, tags and status codes.

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "ProcessSession.h"
#include "common/AisrProcess.h"

#ifdef AISR_CONTROLLED
/**
 * The controlled build asks the program that loads it before every entry: a status other than
 * success is the entry's result. The program can thus record calls, delay them or make them fail.
 */
extern "C" int32_t aisrControlledEntry(const char* entry, void** context, int32_t tag,
                                       const void* data, uint64_t size);
#define AISR_ASK_PROGRAM(context, tag, data, size)                                                \
    do {                                                                                          \
        const int32_t controlledStatus = aisrControlledEntry(__func__, context, tag, data, size); \
        if (controlledStatus != AISR_SUCCESS) {                                                   \
            return controlledStatus;                                                              \
        }                                                                                         \
    } while (false)
#else
#define AISR_ASK_PROGRAM(context, tag, data, size) static_cast<void>(0)
#endif

namespace {

constexpr int32_t kLogErrors = 1;
constexpr int32_t kLogEverything = 3;
constexpr long kMaxFrameTimeMs = 3'600'000;

/** Sent before the init entry has made the context, so it belongs to the whole library. */
std::atomic<int32_t> gLogLevel{kLogErrors};

bool logs(int32_t level) {
    return gLogLevel.load(std::memory_order_relaxed) >= level;
}

/**
 * AISR_SAMPLE_SLOW_MS makes every frame take at least so many milliseconds, so that a demo can show
 * what the client does about a slow library. Read at each init; an invalid value counts as unset.
 */
[[maybe_unused]] std::chrono::milliseconds configuredFrameTime() {
    const char* text = std::getenv("AISR_SAMPLE_SLOW_MS");
    if (text == nullptr || *text == '\0') {
        return std::chrono::milliseconds(0);
    }
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || value < 0 || value > kMaxFrameTimeMs) {
        if (logs(kLogErrors)) {
            std::fprintf(stderr, "aisr sample: AISR_SAMPLE_SLOW_MS is not a time: '%s'\n", text);
        }
        return std::chrono::milliseconds(0);
    }
    return std::chrono::milliseconds(value);
}

ProcessSession* sessionOf(void** context) {
    return context != nullptr ? static_cast<ProcessSession*>(*context) : nullptr;
}

}  // namespace

#ifndef AISR_OMIT_INIT
/** Makes the session and keeps it in the context slot; fatal when there is one already. */
AISR_ENTRY int32_t AisrInit(void** context) {
    AISR_ASK_PROGRAM(context, 0, nullptr, 0);
    if (context == nullptr || *context != nullptr) {
        return AISR_ERR_FATAL;
    }
    const std::chrono::milliseconds frameTime = configuredFrameTime();
    *context = new (std::nothrow) ProcessSession(frameTime);
    if (*context == nullptr) {
        return AISR_ERR_FATAL;
    }
    if (logs(kLogEverything)) {
        std::fprintf(stderr, "aisr sample: initialised, at least %lld ms per frame\n",
                     static_cast<long long>(frameTime.count()));
    }
    return AISR_SUCCESS;
}
#endif

#ifndef AISR_OMIT_DEINIT
/** Ends the session; the slot is empty afterwards. Not while a process or set-parameter call runs.
 */
AISR_ENTRY int32_t AisrDeinit(void** context) {
    AISR_ASK_PROGRAM(context, 0, nullptr, 0);
    ProcessSession* session = sessionOf(context);
    if (session == nullptr) {
        return AISR_ERR_FATAL;
    }
    delete session;
    *context = nullptr;
    if (logs(kLogEverything)) {
        std::fprintf(stderr, "aisr sample: de-initialised\n");
    }
    return AISR_SUCCESS;
}
#endif

#ifndef AISR_OMIT_PROCESS
/** Sharpens the frames of the last buffer list in place. */
AISR_ENTRY int32_t AisrProcess(void** context) {
    AISR_ASK_PROGRAM(context, 0, nullptr, 0);
    ProcessSession* session = sessionOf(context);
    if (session == nullptr) {
        return AISR_ERR_FATAL;
    }
    if (logs(kLogEverything)) {
        std::fprintf(stderr, "aisr sample: frame begun\n");
    }
    try {
        const int32_t status = session->process();
        if (logs(kLogEverything)) {
            std::fprintf(stderr, "aisr sample: frame done, status %d\n", status);
        }
        return status;
    } catch (const std::bad_alloc&) {
        session->clean();
        return AISR_ERR_FATAL;
    }
}
#endif

#ifndef AISR_OMIT_DOCLEAN
/** Drops what was submitted and not yet processed. */
AISR_ENTRY int32_t AisrDoClean(void** context) {
    AISR_ASK_PROGRAM(context, 0, nullptr, 0);
    ProcessSession* session = sessionOf(context);
    if (session == nullptr) {
        return AISR_ERR_FATAL;
    }
    session->clean();
    return AISR_SUCCESS;
}
#endif

#ifndef AISR_OMIT_GETPARAM
/** Answers the log level; there is nothing else to ask for. */
AISR_ENTRY int32_t AisrGetParam(void** context, int32_t tag, void* data, uint64_t size) {
    AISR_ASK_PROGRAM(context, tag, data, size);
    static_cast<void>(context);
    if (tag != AISR_TAG_SET_LOG_LEVEL || data == nullptr || size != sizeof(int32_t)) {
        return AISR_ERR_FATAL;
    }
    *static_cast<int32_t*>(data) = gLogLevel.load();
    return AISR_SUCCESS;
}
#endif

#ifndef AISR_OMIT_SETPARAM
/**
 * The log level is taken at any time, frames and cancels only within a session. A cancel may come
 * while the process entry runs on another thread.
 */
AISR_ENTRY int32_t AisrSetParam(void** context, int32_t tag, const void* data, uint64_t size) {
    AISR_ASK_PROGRAM(context, tag, data, size);
    if (data == nullptr) {
        return AISR_ERR_FATAL;
    }
    if (tag == AISR_TAG_SET_LOG_LEVEL && size == sizeof(int32_t)) {
        gLogLevel = *static_cast<const int32_t*>(data);
        return AISR_SUCCESS;
    }
    ProcessSession* session = sessionOf(context);
    if (session == nullptr) {
        return AISR_ERR_FATAL;
    }
    if (tag == AISR_TAG_SET_BUF && size == sizeof(AisrBufferList)) {
        try {
            return session->submit(*static_cast<const AisrBufferList*>(data));
        } catch (const std::bad_alloc&) {
            session->clean();
            return AISR_ERR_BUF_COPY;
        }
    }
    if (tag == AISR_TAG_SET_TIMEOUT && size == sizeof(AisrBuffer)) {
        session->cancel(*static_cast<const AisrBuffer*>(data));
        return AISR_SUCCESS;
    }
    return AISR_ERR_FATAL;
}
#endif
