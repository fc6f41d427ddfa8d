// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "aisr/AisrEngine.h"
#include "common/BufferInfo.h"
#include "common/DeMutex.h"
#include "common/Export.h"

/**
 * The process's video enhancement, around the one AisrEngine.
 *
 * The first call of any operation but get() and isAisrProcessorSupported() asks the service whether
 * enhancement is supported, creates the engine and initialises it; it may block for these service
 * calls. The outcome holds until the process exits: without a valid engine every later call returns
 * false or does nothing, at the cost of one atomic load.
 *
 * Any thread may call any operation, also while the process exits: the exit waits for operations on
 * the engine that are under way, and later ones do nothing. A first call that the service has not
 * answered yet is waited for a second at most; no engine comes of it any more. In the child of a
 * fork the engine remains the parent's, and the child's exit leaves it alone.
 */
class DE_EXPORT VideoEngine {
public:
    /** The one object of the process. The library creates and destroys it. */
    static VideoEngine& get();

    /** Asks the service whether enhancement is supported; false when it cannot be asked. */
    static bool isAisrProcessorSupported();

    /** Ends the engine, once the operations under way have finished. */
    virtual ~VideoEngine();
    VideoEngine(const VideoEngine&) = delete;
    VideoEngine& operator=(const VideoEngine&) = delete;

    /** Whether there is an engine; creates and initialises it on first use. */
    bool isAisrValid() DE_EXCLUDES(mAisrMutex);
    /** The same. */
    bool isSupported();

    /** AisrEngine::needEnhance, or false. */
    bool needEnhance();
    /** AisrEngine::getAppConfig, or false. */
    bool getAppConfig();
    /** AisrEngine::onAppStart, or nothing. */
    void onAppStart();
    /** AisrEngine::onAppStop, or nothing. */
    void onAppStop();
    /** AisrEngine::onVideoStart, or nothing. */
    void onVideoStart();
    /** AisrEngine::onVideoStop, or nothing. */
    void onVideoStop();
    /** AisrEngine::setEnable, or nothing. */
    void setAisrEnable(bool enable);
    /** AisrEngine::setRect, or nothing. */
    void setRect(int width, int height);
    /** AisrEngine::setFrameRate, or nothing. */
    void setFrameRate(int fps);
    /** AisrEngine::enhance, or nothing. */
    void enhance(Aisr::BufferInfo& info);

private:
    class DE_HIDDEN OperationInFlight;

    constexpr VideoEngine() = default;

    /** REQUIRES: the validity was seen as valid; the engine is stored before that. */
    DE_HIDDEN AisrEngine& engine() { return *mAisrEngine.load(std::memory_order_relaxed); }

    /** isAisrValid(), at the cost of one atomic load once the validity is known. */
    DE_HIDDEN bool hasEngine() DE_EXCLUDES(mAisrMutex);

    /** Stores the outcome of a determination, and its engine if it made one, unless closed. */
    DE_HIDDEN bool settle(int32_t outcome, std::unique_ptr<AisrEngine> created)
        DE_EXCLUDES(mOutcomeMutex);

    /** Makes later calls do nothing. False when this process has nothing to end. */
    DE_HIDDEN bool close() DE_EXCLUDES(mOutcomeMutex);

    /** Runs `operation` on the engine, if there is one, and keeps the engine meanwhile. */
    template <typename OPERATION>
    DE_HIDDEN void withEngine(OPERATION operation);

    // Calls may come after the destructor, so no member has anything to destroy.

    std::atomic<int32_t> mAisrValid{0}; /**< kUndetermined, kValid or kInvalid. */
    DeMutex mAisrMutex;                 /**< Held while the validity is being determined. */
    /** Owned. Stored once; its storage stays for calls that come while the process exits. */
    std::atomic<AisrEngine*> mAisrEngine{nullptr};

    std::atomic<bool> mIsClosed{false};     /**< The process exits. */
    std::atomic<int32_t> mBringUpCount{0};  /**< Determinations of the validity under way. */
    std::atomic<int32_t> mInFlightCount{0}; /**< Operations on the engine, frames excepted. */
    std::atomic<pid_t> mProcess{0};         /**< The process that determined the validity. */
    /**
     * Held for moments, to store an outcome or the closed mark. The exit takes this one and never
     * mAisrMutex, whose holder may be waiting for a service that never answers.
     */
    DeMutex mOutcomeMutex DE_ACQUIRED_AFTER(mAisrMutex);
};
