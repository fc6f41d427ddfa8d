// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N AISR"

#include <utility>

#include "aisr/AisrEngine.h"
#include "aisr/Milliseconds.h"
#include "common/CountedScope.h"
#include "common/Log.h"
#include "common/NoThrow.h"

namespace {

constexpr std::chrono::seconds kIdlePeriod{100};

bool isValid(const Aisr::BufferInfo& info) {
    return info.id != 0 && info.y != nullptr && info.uv != nullptr && info.width >= 1 &&
           info.height >= 1 && info.stride >= 1;
}

/** The result of a task; a frame that was discarded at the engine's end is a failed one. */
int takeResult(std::future<int>& result) {
    return noThrow(-1, [&] { return result.get(); });
}

}  // namespace

bool AisrEngine::isReady() {
    if (!mIsInitialized) {
        return false;
    }
    if (mIsReady) {
        return true;
    }
    const DeMutexLock lock(mTaskMutex);
    if (mIsReady) {
        return true;
    }
    if (mRetryCount <= 0) {
        DE_LOGD("Retry count:%d", mRetryCount);
        return false;
    }
    --mRetryCount;  // Spent whatever the outcome.
    return getReady();
}

bool AisrEngine::getReady() {
    if (!mIsInitialized) {
        return false;
    }
    if (mIsReady) {
        return true;
    }
    if (noThrow(-1, [this] { return mAlgorithm.init(); }) != 0) {
        DE_LOGW("mAlgorithm.init() failed!");
        return false;
    }
    mIsEnhanceAlive = true;
    if (!startWorker()) {
        // Like a failed initialisation of the library: nothing is half set, a later attempt may
        // work.
        DE_LOGW("Failed to start the worker!");
        mIsEnhanceAlive = false;
        return false;
    }
    mIsReady = true;
    return true;
}

bool AisrEngine::startWorker() {
    const auto work = [this] {
        DeMutexLock lock(mTaskMutex);
        auto idleDeadline = SteadyClock::now() + kIdlePeriod;
        while (mIsEnhanceAlive) {
            if (!mTasks.empty()) {
                std::packaged_task<int()> task = std::move(mTasks.front());
                mTasks.pop_front();
                lock.unlock();
                task();
                task = {};  // The frame's record and result are let go before the lock is taken.
                lock.lock();
                idleDeadline = SteadyClock::now() + kIdlePeriod;
            } else if (mTaskCond.wait_until(lock.native(), idleDeadline) ==
                           std::cv_status::timeout &&
                       mIsEnhanceAlive && mTasks.empty()) {
                DE_LOGI("enhance timeout.");
                idleDeadline = SteadyClock::now() + kIdlePeriod;
            }
        }
        DE_LOGI("enhance died.");
    };
    mThread = noThrow(std::thread(), [&work] { return std::thread(work); });
    return mThread.joinable();
}

// Accounting comes first: a frame that is refused afterwards has used up its index.
bool AisrEngine::isOverload(Aisr::BufferInfo& info) {
    if (info.id == mLastId) {
        ++mFrameIdx;
    } else {
        mIsOverload = false;
        mFrameIdx = 0;
        mLastId = info.id;
        mTimeoutHistory.clear();
    }
    info.idx = mFrameIdx;
    return mIsOverload;
}

void AisrEngine::enhance(Aisr::BufferInfo& info) {
    if (!isReady()) {
        return;
    }
    if (!isValid(info)) {
        DE_LOGD("Invalid input: %s", AisrAlgorithm::toString(info).c_str());
        return;
    }

    DeMutexLock lock(mTaskMutex);
    if (!mIsInitialized) {
        return;  // The engine has ended while this call waited for the lock.
    }
    if (isOverload(info)) {
        DE_LOGD("Overload! %s skip.", AisrAlgorithm::toString(info).c_str());
        return;
    }
    if (isUnhealthy(info.id, AisrAlgorithm::rectToString(info))) {
        return;
    }
    if (!mTasks.empty()) {
        DE_LOGW("Tasks is not empty! enhance(%s) skip!", AisrAlgorithm::toString(info).c_str());
        return;
    }
    const CountedScope waiting(mWaitingCallers);
    std::packaged_task<int()> task(
        [this, info] { return noThrow(-1, [&] { return doEnhance(info); }); });
    std::future<int> result = task.get_future();
    mTasks.push_back(std::move(task));
    lock.unlock();

    const auto start = SteadyClock::now();
    mTaskCond.notify_one();
    // The caller's deadline follows the wall clock, the worker's idle deadline the steady one.
    const auto deadline =
        std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now()) +
        std::chrono::microseconds(mTimeoutAbortMs * 1000);
    const bool isDone = result.wait_until(deadline) == std::future_status::ready;
    const float elapsedMs = toMilliseconds(SteadyClock::now() - start);
    if (!isDone) {
        // The task stays where it is: it completes on the worker, and its result is discarded.
        DE_LOGW("doEnhance(%s) expired %g(%d)ms timeout!",
                AisrAlgorithm::toStringSafe(info).c_str(), elapsedMs,
                static_cast<int32_t>(mTimeoutAbortMs));
        cancelEnhance(info);
        return;
    }
    DE_LOGD("doEnhance(%s) used %gms return %d", AisrAlgorithm::toString(info).c_str(), elapsedMs,
            takeResult(result));
}

int AisrEngine::doEnhance(Aisr::BufferInfo info) {
    const auto start = SteadyClock::now();
    const int result = noThrow(-1, [&] { return mAlgorithm.enhance(info); });
    const float elapsedMs = toMilliseconds(SteadyClock::now() - start);
    if (result != 0) {
        DE_LOGW("mAlgorithm.enhance(%s) failed! Used %gms",
                AisrAlgorithm::toStringSafe(info).c_str(), elapsedMs);
        return result;
    }
    if (elapsedMs < static_cast<float>(mTimeoutOverloadMs)) {
        DE_LOGD("enhance(%s) used %gms", AisrAlgorithm::toStringSafe(info).c_str(), elapsedMs);
        return 0;
    }
    const DeMutexLock lock(mTaskMutex);
    DE_LOGI("enhance(%s) used %gms", AisrAlgorithm::toStringSafe(info).c_str(), elapsedMs);
    updateTimeoutStatus(info);
    return 0;
}

void AisrEngine::updateTimeoutStatus(const Aisr::BufferInfo& info) {
    mTimeoutHistory.push_back(SteadyClock::now());
    const auto count = static_cast<int32_t>(mTimeoutHistory.size());
    if (count < mTimeoutToleranceCount) {
        DE_LOGD("Overload:%d. count:%d at %s", mIsOverload, count,
                AisrAlgorithm::toStringSafe(info).c_str());
        return;
    }
    const float spanMs = toMilliseconds(mTimeoutHistory.back() - mTimeoutHistory.front());
    mTimeoutHistory.pop_front();
    const auto overloadMs = static_cast<int32_t>(mTimeoutOverloadMs);
    const auto periodMs = static_cast<int32_t>(mTimeoutTolerancePeriodMs);
    if (spanMs < static_cast<float>(mTimeoutTolerancePeriodMs)) {
        DE_LOGW("Overload! %d timeouts(>=%dms) occurred during %gms(<%dms), count at %s", count,
                overloadMs, spanMs, periodMs, AisrAlgorithm::toStringSafe(info).c_str());
        mIsOverload = true;
    } else {
        DE_LOGD("Overload:%d. %d timeouts(>=%dms) occurred during %gms(>=%dms), count at %s",
                mIsOverload, count, overloadMs, spanMs, periodMs,
                AisrAlgorithm::toStringSafe(info).c_str());
    }
}

void AisrEngine::cancelEnhance(const Aisr::BufferInfo& info) {
    mAlgorithm.cancel(info);
}
