// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Status.h>
#include <utils/StrongPointer.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "aidl/BnDisplayEngineCallback.h"
#include "aidl/IDisplayEngineService.h"
#include "aisr/AisrAlgorithm.h"
#include "common/BufferInfo.h"
#include "common/DeMutex.h"
#include "common/Export.h"

/**
 * Decides whether video frames may be enhanced, and enhances them on a worker thread of its own
 * under a time limit. One engine exists in a process; VideoEngine creates, initialises and destroys
 * it.
 *
 * Any thread may call the public operations. initialize() must not run concurrently with any other
 * call, the destructor with none but enhance(), needEnhance() and isReady(). Operations without a
 * result report failures in the log only. Until initialize() has succeeded nothing is enhanced and
 * no report is taken.
 */
class DE_EXPORT AisrEngine {
public:
    /** What has to hold for enhancement to be wanted. */
    enum EnhanceCondition : int {
        EN_COND_ENABLE = 0, /**< Switched on, by the service or the client. */
        EN_COND_RECT = 1,   /**< The video's size lies in the configured range. */
        EN_COND_FPS = 2,    /**< The video's frame rate does not exceed the configured ceiling. */
    };

    AisrEngine();
    /**
     * Withdraws the registration, stops the worker after the frame it is processing, and unloads
     * the processing library. A frame still queued is discarded and counts as failed.
     *
     * Calls of enhance() that are under way are waited for. Calls that come later find an engine
     * that is not initialised, for as long as its storage is kept.
     */
    virtual ~AisrEngine();
    AisrEngine(const AisrEngine&) = delete;
    AisrEngine& operator=(const AisrEngine&) = delete;

    /**
     * Fetches the configuration from the service and registers for its events. Blocks for these
     * calls. False when the engine cannot be used; it is then deleted.
     */
    bool initialize();

    /** Whether frames should now be offered: all three conditions hold. Lock-free. */
    bool needEnhance() const;
    /** Whether enhancement is switched on, whatever the video. Lock-free. */
    bool getAppConfig() const;

    /** Switches enhancement on or off. */
    void setEnable(bool enable) DE_EXCLUDES(mStateMutex);
    /** Reports the video's size in pixels, each side at least 1. */
    void setRect(int width, int height) DE_EXCLUDES(mStateMutex);
    /** Reports the video's frame rate in frames per second, at least 1. */
    void setFrameRate(int fps) DE_EXCLUDES(mStateMutex);

    /** The client's application started: initialises the processing library and the worker. */
    void onAppStart() DE_EXCLUDES(mTaskMutex);
    /**
     * The client's application stopped: de-initialises the processing library, after the frame in
     * processing. The worker stays, and the conditions keep their verdicts.
     */
    void onAppStop() DE_EXCLUDES(mTaskMutex);
    /** A video started; nothing depends on it. */
    void onVideoStart();
    /** A video stopped; nothing depends on it. */
    void onVideoStop();

    /** Whether the worker runs; if not, starts it, a limited number of times in all. */
    bool isReady() DE_EXCLUDES(mTaskMutex);

    /**
     * Enhances one frame in place, and writes its index into `info`.
     *
     * Blocks for at most the configured abort timeout (40 ms unless configured), beside the wait
     * for a lock that is held only for moments. A frame that outlasts the timeout is then
     * cancelled; that runs an entry of the processing library on this thread, so a library whose
     * entry does not return at once makes this call late by as long. It may still be writing the
     * planes of a cancelled frame: the caller keeps them allocated and unread until a later frame
     * has completed, or past the engine's end.
     *
     * A frame that is refused passes unenhanced: the engine is not ready, the record is invalid,
     * the stream is overloaded or is offered too fast, or a frame is still queued.
     */
    void enhance(Aisr::BufferInfo& info) DE_EXCLUDES(mTaskMutex);

private:
    class ClientCallback;

    static constexpr int kConditionCount = 3;
    using SteadyClock = std::chrono::steady_clock;

    // Bring-up and teardown.
    bool updateAppName();
    /**
     * Writes what mStateMutex guards without taking it: no other thread reaches the engine yet, and
     * a lock held while the first conditions are logged would gain nothing.
     */
    bool getConfig(android::sp<com::tivora::displayengine::IDisplayEngineService> service)
        DE_NO_THREAD_SAFETY_ANALYSIS;
    bool registerCallback(android::sp<com::tivora::displayengine::IDisplayEngineService> service);
    void unregisterCallback(android::sp<com::tivora::displayengine::IDisplayEngineService> service);
    /** REQUIRES: `config` is valid. */
    DE_HIDDEN void applyConfig(const std::vector<int32_t>& config);

    // Conditions.
    void setEnableInternal(bool enable) DE_REQUIRES(mStateMutex);
    void updateEnhance(EnhanceCondition cond, bool on, const std::string& reason)
        DE_REQUIRES(mStateMutex);
    DE_HIDDEN bool isRectAccepted(int width, int height) const;
    std::string getCondName(int cond) const;

    // Frames.
    bool getReady() DE_REQUIRES(mTaskMutex);
    /** False when no thread can be started. */
    DE_HIDDEN bool startWorker() DE_REQUIRES(mTaskMutex);
    /** Also counts the frame and writes its index; another stream's frame clears the latch. */
    bool isOverload(Aisr::BufferInfo& info) DE_REQUIRES(mTaskMutex);
    void updateTimeoutStatus(const Aisr::BufferInfo& info) DE_REQUIRES(mTaskMutex);
    /** Also counts the frame, and judges the interval that it closes. */
    bool isUnhealthy(uint64_t id, const std::string& rect) DE_REQUIRES(mTaskMutex);
    int doEnhance(Aisr::BufferInfo info) DE_EXCLUDES(mTaskMutex);
    void cancelEnhance(const Aisr::BufferInfo& info) DE_EXCLUDES(mTaskMutex);

    // The order of the members is fixed. mAlgorithm is the last to be destroyed: the worker has
    // been joined by then.
    AisrAlgorithm mAlgorithm;
    /** Set by initialize(); cleared by the destructor, under mTaskMutex. */
    std::atomic<bool> mIsInitialized{false};
    std::string mAppName; /**< Name of the process; the engine's key with the service. */

    // Configuration: written in initialize(), only read afterwards.
    int32_t mMinWidth = 512;
    int32_t mMinHeight = 512;
    int32_t mMaxWidth = 720;
    int32_t mMaxHeight = 1280;
    int32_t mMaxFps = 30;
    int32_t mMonitorMaxFps = 38;
    int32_t mMonitorTolerance = 2;
    int32_t mMonitorRestore = 3;
    int64_t mTimeoutAbortMs = 40;
    int64_t mTimeoutOverloadMs = 33;
    int64_t mTimeoutTolerancePeriodMs = 10000;
    int32_t mTimeoutToleranceCount = 5;

    // Worker, queue, overload latch and monitor. mTaskMutex is never held together with
    // mStateMutex, nor while the library processes a frame, nor while a caller waits for one.
    std::condition_variable mTaskCond; /**< Wakes the worker: a task was queued, or it must stop. */
    DeMutex mTaskMutex;
    /** Changes once, under the lock; read without it as well. */
    std::atomic<bool> mIsReady{false};
    int32_t mRetryCount DE_GUARDED_BY(mTaskMutex) = 5;
    uint64_t mLastId DE_GUARDED_BY(mTaskMutex) = 0;
    uint64_t mFrameIdx DE_GUARDED_BY(mTaskMutex) = 0;
    bool mIsEnhanceAlive DE_GUARDED_BY(mTaskMutex) = false;
    std::thread mThread DE_GUARDED_BY(mTaskMutex);
    std::deque<std::packaged_task<int()>> mTasks DE_GUARDED_BY(mTaskMutex); /**< At most one. */
    bool mIsOverload DE_GUARDED_BY(mTaskMutex) = false;
    std::deque<SteadyClock::time_point> mTimeoutHistory DE_GUARDED_BY(mTaskMutex);
    SteadyClock::time_point mMonitorStart DE_GUARDED_BY(mTaskMutex);
    bool mIsUnhealthy DE_GUARDED_BY(mTaskMutex) = false;
    int32_t mMonitorFrameCount DE_GUARDED_BY(mTaskMutex) = 0;
    int32_t mMonitorHighCount DE_GUARDED_BY(mTaskMutex) = 0;
    int32_t mMonitorNormalCount DE_GUARDED_BY(mTaskMutex) = 0;
    uint64_t mUnhealthyId DE_GUARDED_BY(mTaskMutex) = 0;

    // Conditions. The verdicts and their count change under the lock and are read without it.
    DeMutex mStateMutex;
    bool mIsEnable DE_GUARDED_BY(mStateMutex) = false;
    int32_t mWidth DE_GUARDED_BY(mStateMutex) = 0;
    int32_t mHeight DE_GUARDED_BY(mStateMutex) = 0;
    int32_t mFps DE_GUARDED_BY(mStateMutex) = 0;
    std::array<std::atomic<bool>, kConditionCount> mIsEnhance{};
    std::atomic<int32_t> mEnhanceCount{0};

    /**
     * How many calls of enhance() wait for a frame: raised under mTaskMutex, and lowered as the
     * last that such a call does with the engine.
     */
    std::atomic<int32_t> mWaitingCallers{0};
};

/**
 * What the engine registers with the service. It holds no pointer to the engine, which it may
 * outlive, and reaches it through VideoEngine. Its operations run on binder threads of this
 * process, and always answer with an ok Status.
 */
class AisrEngine::ClientCallback : public com::tivora::displayengine::BnDisplayEngineCallback {
public:
    ~ClientCallback() override;
    /** Ignored; the engine's event comes with data. */
    android::binder::Status onEvent(int event, int value) override;
    /** Switches the engine on or off for DE_EVENT_AISR with "Enable"; anything else is logged. */
    android::binder::Status onEventWithData(int event,
                                            const android::os::PersistableBundle& data) override;
};
