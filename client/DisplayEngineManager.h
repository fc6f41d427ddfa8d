// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pthread.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "aidl/IDisplayEngineService.h"
#include "common/BufferInfo.h"
#include "common/Export.h"

/**
 * A client's door to the display engine. Clients hold it with android::sp and may have several.
 *
 * The video methods share the one engine of the process, whichever object they are called on, and
 * so do the size, the rate and the stream that they report. Any thread may call them, also while
 * the process exits. The first of them in a process may block for calls of the service; afterwards
 * needVideoEnhance() and the way to doVideoEnhance() cost an atomic load each.
 */
class DE_EXPORT DisplayEngineManager : public virtual android::RefBase {
public:
    /** Re-reads the process's log switches. Does not contact the service. */
    DisplayEngineManager();
    ~DisplayEngineManager() override;
    DisplayEngineManager(const DisplayEngineManager&) = delete;
    DisplayEngineManager& operator=(const DisplayEngineManager&) = delete;

    /**
     * The service's proxy, looked up on first need and kept for the life of this object, also after
     * the service has died. Null when the service cannot be found; the next call looks again. May
     * block some seconds for a service that is not yet up. Any thread may call.
     */
    android::sp<com::tivora::displayengine::IDisplayEngineService> getService();

    // Display queries and settings. Each blocks for calls of the service; any thread may call,
    // except that one object's displayengineSetBrightness() is for one thread at a time.

    /**
     * Sends the brightness level, 0 or more, unless it is the last one sent or the panel lacks the
     * feature. Returns the service's answer about the feature, asked once: 1 or more when the panel
     * has it. -1 for a negative level or without a service.
     */
    int displayengineSetBrightness(int level);
    /** Sets `name` and returns 0; otherwise the service's own result, or -1, and `name` stays. */
    int getPanelName(std::string& name);
    /**
     * The service's answer about the reading mode; 0 on failure, which is logged only when there is
     * no service.
     */
    int getReadingSupport();
    /** The same about the global reading mode. */
    int getGlobalReadingSupport();
    /** The service's answer about the compensation of a folding screen; 0 on failure. */
    int getFoldingCompensationSupported();
    /** The alpha of the folding screen's compensation; 1023 on failure. */
    int getFoldingCompensationAlpha();
    /** 1 when the panel has a local high-brightness mode, otherwise 0, also on failure. */
    int getLocalHBMSupport();
    /** The service's result; -22 on failure. */
    int setScene(int scene, int value);
    /** Passes the frame rate as text, up to its first NUL. The service's result; -22 on failure. */
    int setFrameRate(const std::string& fps);
    /** Registers for the service's events; a failure is only logged. */
    void registerCallback(
        const android::sp<com::tivora::displayengine::IDisplayEngineCallback>& callback);
    /** Withdraws the registration; a failure is only logged. */
    void unregisterCallback(
        const android::sp<com::tivora::displayengine::IDisplayEngineCallback>& callback);

    /** Whether video enhancement is available in this process. */
    bool isVideoEngineSupported();
    /** Whether the next frame should be offered to doVideoEnhance(). */
    bool needVideoEnhance();
    /** Whether enhancement is switched on for this process, whatever the video. */
    bool getVideoAppConfig();

    /** The client's application has started: makes the engine ready for frames. */
    void onVideoAppStart();
    /** The client's application has stopped; waits for the frame in processing, not a queued one.
     */
    void onVideoAppStop();
    /** A video has started. */
    void onVideoStart();
    /** A video has stopped. */
    void onVideoStop();

    /** Switches enhancement on or off, as the service does by its events. */
    void setAisrEnable(bool enable);
    /** Reports the video's size in pixels; sides below 1 are ignored. */
    void setVideoRect(int width, int height);
    /** Reports the video's frame rate in frames per second; rates below 1 are ignored. */
    void setVideoFrameRate(int fps);

    /**
     * Enhances one frame in place, or passes it unenhanced; the log tells which. Blocks at most the
     * configured abort timeout, 40 ms unless configured, and for the cancel of a frame that
     * outlasted it, which a sound processing library takes at once. The library may still be
     * writing the planes of such a frame: the caller keeps them allocated and unread until a later
     * frame has completed, or else until the process has ended.
     */
    void doVideoEnhance(Aisr::BufferInfo& info);

private:
    // The order of the members is fixed.

    // Owns one strong reference; set at most once, under the lock, and read without it.
    std::atomic<com::tivora::displayengine::IDisplayEngineService*> mService{nullptr};
    pthread_mutex_t mServiceLock; /**< One first lookup at a time. */
    bool mSupportRgLedPrinted = false;
    bool mSupportRgLedQueried = false;
    int32_t mSupportRgLed = 0;
    int32_t mLastBrightnessLevel = -1;
};
