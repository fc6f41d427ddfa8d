// SPDX-License-Identifier: Apache-2.0
#pragma once

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
 * Any thread may call any operation, also while the process exits: a call that comes after the
 * engine was released does nothing. Only frames are the client's to stop: it lets no needEnhance()
 * or enhance() run when it calls exit.
 */
class DE_EXPORT VideoEngine {
public:
    /** The one object of the process. The library creates and destroys it. */
    static VideoEngine& get();

    /** Asks the service whether enhancement is supported; false when it cannot be asked. */
    static bool isAisrProcessorSupported();

    /** Releases the engine, once the operations under way have finished. */
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
    class DE_HIDDEN Visit;

    constexpr VideoEngine() = default;

    // The engine, without the mutex: it is stored before the validity is published as valid, and
    // stays until the destructor. REQUIRES: isAisrValid() has returned true.
    DE_HIDDEN AisrEngine& engine() DE_NO_THREAD_SAFETY_ANALYSIS { return *mAisrEngine; }

    // isAisrValid() for what every frame asks: its short way, once the validity is known.
    DE_HIDDEN bool hasEngine() DE_EXCLUDES(mAisrMutex);

    /** Runs `operation` on the engine, if there is one, and keeps the engine meanwhile. */
    template <typename OPERATION>
    DE_HIDDEN void withEngine(OPERATION operation);

    // Atomic, published with release order after the engine is stored.
    std::atomic<int32_t> mAisrValid{0}; /**< kUndetermined, kValid or kInvalid. */
    DeMutex mAisrMutex;                 /**< Held while the validity is being determined. */
    std::unique_ptr<AisrEngine> mAisrEngine DE_GUARDED_BY(mAisrMutex);

    // Exit. These two and mAisrValid are read by calls that come after the destructor: they lie in
    // static storage and have nothing to destroy.
    std::atomic<bool> mIsClosed{false};
    std::atomic<int32_t> mVisitCount{0};
};
