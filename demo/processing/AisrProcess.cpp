// SPDX-License-Identifier: Apache-2.0
// The six entry points of the sample processing library. It is a library of its own: it shares
// nothing with the client library but the records, tags and status codes.
#include "common/AisrProcess.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

#include "LumaSharpener.h"
#include "common/DeMutex.h"

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

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int32_t kLogErrors = 1;
constexpr int32_t kLogEverything = 3;
constexpr long kMaxFrameTimeMs = 3'600'000;
/** A slowed frame is held back at every so many rows. */
constexpr int kPaceRows = 16;
/** More than any video has, and far from what would overflow the arithmetic. */
constexpr int kLargestSide = 1 << 15;

/** Sent before the init entry has made the context, so it belongs to the whole library. */
std::atomic<int32_t> gLogLevel{kLogErrors};

/** Writes to standard error if the log level is `level` or a higher one. */
[[gnu::format(printf, 2, 3)]] void log(int32_t level, const char* format, ...) {
    if (gLogLevel.load(std::memory_order_relaxed) >= level) {
        va_list arguments;
        va_start(arguments, format);
        std::vfprintf(stderr, format, arguments);
        va_end(arguments);
    }
}

/**
 * AISR_SAMPLE_SLOW_MS makes every frame take at least so many milliseconds, so that a demo can show
 * what the client does about a slow library. Read at each init; an invalid value counts as unset.
 */
milliseconds configuredFrameTime() {
    const char* const text = std::getenv("AISR_SAMPLE_SLOW_MS");
    if (text == nullptr || *text == '\0') {
        return milliseconds(0);
    }
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || value < 0 || value > kMaxFrameTimeMs) {
        log(kLogErrors, "aisr sample: AISR_SAMPLE_SLOW_MS is not a time: '%s'\n", text);
        return milliseconds(0);
    }
    return milliseconds(value);
}

bool sameFrame(const AisrBuffer& a, const AisrBuffer& b) {
    return a.id == b.id && a.idx == b.idx;
}

bool isUsable(const AisrBuffer& frame) {
    const bool hasPlanes = frame.y != nullptr && frame.uv != nullptr;
    const bool hasSize = frame.width >= 1 && frame.width <= kLargestSide && frame.height >= 1 &&
                         frame.height <= kLargestSide;
    return frame.id != 0 && hasPlanes && hasSize && frame.stride >= frame.width;
}

/**
 * What the library keeps between its init and its deinit entry.
 *
 * The client submits and processes on one thread at a time; `cancel` may come on another thread at
 * any moment in between, also before the frame that it names was submitted.
 */
class ProcessSession {
public:
    /** `frameTime` is the least time that a frame takes; 0 for as fast as the machine can. */
    explicit ProcessSession(milliseconds frameTime) : mFrameTime(frameTime) {}

    /**
     * Takes over the frames of a list for the next `process`; the list is not kept. A list that is
     * broken, or a frame with impossible planes or geometry, gives AISR_ERR_BUF_COPY and leaves
     * nothing submitted.
     */
    int32_t submit(const AisrBufferList& list) {
        clean();
        const AisrBufferLinks* link = list.ends.next;
        for (uint64_t i = 0; i < list.count; ++i, link = link->next) {
            const bool isNode = link != nullptr && link != &list.ends;
            const auto* node = isNode ? reinterpret_cast<const AisrBufferNode*>(link) : nullptr;
            if (node == nullptr || !isUsable(node->buffer)) {
                clean();
                break;
            }
            mSubmitted.push_back(node->buffer);
        }
        return mSubmitted.empty() ? AISR_ERR_BUF_COPY : AISR_SUCCESS;
    }

    /**
     * Sharpens the submitted frames in place, and forgets them. AISR_ERR_TIMEOUT when a frame was
     * cancelled, before or meanwhile: the rows done by then stay sharpened. AISR_ERR_BUF_COPY when
     * nothing is submitted.
     */
    int32_t process() {
        int32_t result = mSubmitted.empty() ? AISR_ERR_BUF_COPY : AISR_SUCCESS;
        for (const AisrBuffer& frame : mSubmitted) {
            const int32_t status = processFrame(frame);
            result = result == AISR_SUCCESS ? status : result;
        }
        clean();
        return result;
    }

    /** Abandons a frame: the one at work stops before its next row, a later one never starts. */
    void cancel(const AisrBuffer& frame) {
        const DeMutexLock lock(mMutex);
        if (sameFrame(frame, mAtWork)) {
            mStop = true;
            mCancelCond.notify_all();
        } else {
            mCancelled = frame;
        }
    }

    /** Forgets what is submitted. */
    void clean() { mSubmitted.clear(); }

private:
    int32_t processFrame(const AisrBuffer& frame) {
        {
            const DeMutexLock lock(mMutex);
            mAtWork = frame;
            mStop = sameFrame(mCancelled, frame);
            // Frames come in order: an earlier cancel that names no frame from here on is out of
            // date.
            mCancelled = AisrBuffer{};
        }
        const Clock::time_point start = Clock::now();
        const auto proceed = [&](int row) { return pace(start, row, frame.height); };
        const bool isDone = mSharpener.sharpen(static_cast<uint8_t*>(frame.y), frame.width,
                                               frame.height, frame.stride, proceed) &&
                            proceed(frame.height);
        const DeMutexLock lock(mMutex);
        mAtWork = AisrBuffer{};
        return isDone ? AISR_SUCCESS : AISR_ERR_TIMEOUT;
    }

    /**
     * Whether to go on with `row`. A slowed frame is spread evenly over its time instead of
     * sleeping at its end, as a library that really is slow would behave towards a cancel.
     */
    bool pace(Clock::time_point start, int row, int height) {
        const bool isPacePoint = row % kPaceRows == 0 || row == height;
        if (mFrameTime.count() > 0 && isPacePoint) {
            const auto due = start + std::chrono::nanoseconds(mFrameTime) * row / height;
            DeMutexLock lock(mMutex);
            mCancelCond.wait_until(lock.native(), due, [this] { return mStop.load(); });
        }
        return !mStop.load(std::memory_order_relaxed);
    }

    const milliseconds mFrameTime;
    LumaSharpener mSharpener;
    std::vector<AisrBuffer> mSubmitted;

    DeMutex mMutex;
    std::condition_variable mCancelCond;
    AisrBuffer mAtWork DE_GUARDED_BY(mMutex){}; /**< Id 0: none. */
    // The last frame that was named and is not yet known; id 0: none.
    AisrBuffer mCancelled DE_GUARDED_BY(mMutex){};
    std::atomic<bool> mStop{false}; /**< Changes under the mutex; read without it between rows. */
};

/** Does an entry's `work`: fatal without a session, `noMemory` when memory is short. */
template <typename WORK>
int32_t inSession(void** context, int32_t noMemory, WORK work) {
    if (context == nullptr || *context == nullptr) {
        return AISR_ERR_FATAL;
    }
    auto& session = *static_cast<ProcessSession*>(*context);
    try {
        return work(session);
    } catch (const std::bad_alloc&) {
        session.clean();
        return noMemory;
    }
}

}  // namespace

/** Makes the session and keeps it in the context slot; fatal when there is one already. */
AISR_ENTRY int32_t AisrInit(void** context) {
    AISR_ASK_PROGRAM(context, 0, nullptr, 0);
    if (context == nullptr || *context != nullptr) {
        return AISR_ERR_FATAL;
    }
    const milliseconds frameTime = configuredFrameTime();
    *context = new (std::nothrow) ProcessSession(frameTime);
    if (*context == nullptr) {
        return AISR_ERR_FATAL;
    }
    log(kLogEverything, "aisr sample: initialised, at least %lld ms per frame\n",
        static_cast<long long>(frameTime.count()));
    return AISR_SUCCESS;
}

/** Ends the session; the slot is empty afterwards. Not while a process or set-parameter call runs.
 */
AISR_ENTRY int32_t AisrDeinit(void** context) {
    AISR_ASK_PROGRAM(context, 0, nullptr, 0);
    if (context == nullptr || *context == nullptr) {
        return AISR_ERR_FATAL;
    }
    delete static_cast<ProcessSession*>(*context);
    *context = nullptr;
    log(kLogEverything, "aisr sample: de-initialised\n");
    return AISR_SUCCESS;
}

/** Sharpens the frames of the last buffer list in place. */
AISR_ENTRY int32_t AisrProcess(void** context) {
    AISR_ASK_PROGRAM(context, 0, nullptr, 0);
    return inSession(context, AISR_ERR_FATAL, [](ProcessSession& session) {
        log(kLogEverything, "aisr sample: frame begun\n");
        const int32_t status = session.process();
        log(kLogEverything, "aisr sample: frame done, status %d\n", status);
        return status;
    });
}

/** Drops what was submitted and not yet processed. */
AISR_ENTRY int32_t AisrDoClean(void** context) {
    AISR_ASK_PROGRAM(context, 0, nullptr, 0);
    return inSession(context, AISR_ERR_FATAL, [](ProcessSession& session) {
        session.clean();
        return AISR_SUCCESS;
    });
}

/** Answers the log level; there is nothing else to ask for. */
AISR_ENTRY int32_t AisrGetParam([[maybe_unused]] void** context, int32_t tag, void* data,
                                uint64_t size) {
    AISR_ASK_PROGRAM(context, tag, data, size);
    if (tag != AISR_TAG_SET_LOG_LEVEL || data == nullptr || size != sizeof(int32_t)) {
        return AISR_ERR_FATAL;
    }
    *static_cast<int32_t*>(data) = gLogLevel.load();
    return AISR_SUCCESS;
}

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
    return inSession(context, AISR_ERR_BUF_COPY, [&](ProcessSession& session) -> int32_t {
        if (tag == AISR_TAG_SET_BUF && size == sizeof(AisrBufferList)) {
            return session.submit(*static_cast<const AisrBufferList*>(data));
        }
        if (tag == AISR_TAG_SET_TIMEOUT && size == sizeof(AisrBuffer)) {
            session.cancel(*static_cast<const AisrBuffer*>(data));
            return AISR_SUCCESS;
        }
        return AISR_ERR_FATAL;
    });
}
