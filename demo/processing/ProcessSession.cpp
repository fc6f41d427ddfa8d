// SPDX-License-Identifier: Apache-2.0
#include "ProcessSession.h"

namespace {

/** A slowed frame is held back at every so many rows. */
constexpr int kPaceRows = 16;

/** More than any video has, and far from what would overflow the arithmetic. */
constexpr int kLargestSide = 1 << 15;

bool sameFrame(const AisrBuffer& a, const AisrBuffer& b) {
    return a.id == b.id && a.idx == b.idx;
}

bool isUsable(const AisrBuffer& frame) {
    const bool hasPlanes = frame.y != nullptr && frame.uv != nullptr;
    const bool hasSize = frame.width >= 1 && frame.width <= kLargestSide && frame.height >= 1 &&
                         frame.height <= kLargestSide;
    return frame.id != 0 && hasPlanes && hasSize && frame.stride >= frame.width;
}

}  // namespace

int32_t ProcessSession::submit(const AisrBufferList& list) {
    mSubmitted.clear();
    const AisrBufferLinks* link = list.ends.next;
    for (uint64_t i = 0; i < list.count; ++i, link = link->next) {
        const bool isNode = link != nullptr && link != &list.ends;
        const auto* node = isNode ? reinterpret_cast<const AisrBufferNode*>(link) : nullptr;
        if (node == nullptr || !isUsable(node->buffer)) {
            mSubmitted.clear();
            return AISR_ERR_BUF_COPY;
        }
        mSubmitted.push_back(node->buffer);
    }
    return mSubmitted.empty() ? AISR_ERR_BUF_COPY : AISR_SUCCESS;
}

int32_t ProcessSession::process() {
    if (mSubmitted.empty()) {
        return AISR_ERR_BUF_COPY;
    }
    int32_t result = AISR_SUCCESS;
    for (const AisrBuffer& frame : mSubmitted) {
        const int32_t status = processFrame(frame);
        result = result == AISR_SUCCESS ? status : result;
    }
    mSubmitted.clear();
    return result;
}

int32_t ProcessSession::processFrame(const AisrBuffer& frame) {
    {
        const DeMutexLock lock(mMutex);
        mAtWork = frame;
        mStop = sameFrame(mCancelled, frame);
        // Frames come in order: an earlier cancel that names no frame from here on is out of date.
        mCancelled = AisrBuffer{};
    }
    const auto start = std::chrono::steady_clock::now();
    const bool isDone =
        mSharpener.sharpen(static_cast<uint8_t*>(frame.y), frame.width, frame.height, frame.stride,
                           [&](int row) { return pace(start, row, frame.height); }) &&
        pace(start, frame.height, frame.height);
    const DeMutexLock lock(mMutex);
    mAtWork = AisrBuffer{};
    return isDone ? AISR_SUCCESS : AISR_ERR_TIMEOUT;
}

/**
 * Whether to go on with `row`. A slowed frame is spread evenly over its time instead of sleeping at
 * its end, as a library that really is slow would behave towards a cancel.
 */
bool ProcessSession::pace(std::chrono::steady_clock::time_point start, int row, int height) {
    const bool isPacePoint = row % kPaceRows == 0 || row == height;
    if (mFrameTime.count() > 0 && isPacePoint) {
        const auto due = start + std::chrono::nanoseconds(mFrameTime) * row / height;
        DeMutexLock lock(mMutex);
        mCancelCond.wait_until(lock.native(), due, [this] { return mStop.load(); });
    }
    return !mStop.load(std::memory_order_relaxed);
}

void ProcessSession::cancel(const AisrBuffer& frame) {
    const DeMutexLock lock(mMutex);
    if (sameFrame(frame, mAtWork)) {
        mStop = true;
        mCancelCond.notify_all();
    } else {
        mCancelled = frame;
    }
}

void ProcessSession::clean() {
    mSubmitted.clear();
}
