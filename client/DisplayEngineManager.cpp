// SPDX-License-Identifier: Apache-2.0
#include "client/DisplayEngineManager.h"

#include "client/ServiceConnection.h"
#include "client/VideoEngine.h"
#include "common/DisplayEngineCleanCommon.h"

using android::sp;
using com::tivora::displayengine::IDisplayEngineService;

namespace {

class PosixLock {
public:
    explicit PosixLock(pthread_mutex_t& mutex) : mMutex(mutex) { pthread_mutex_lock(&mMutex); }
    ~PosixLock() { pthread_mutex_unlock(&mMutex); }
    PosixLock(const PosixLock&) = delete;
    PosixLock& operator=(const PosixLock&) = delete;

private:
    pthread_mutex_t& mMutex;
};

}  // namespace

DisplayEngineManager::DisplayEngineManager() {
    pthread_mutex_init(&mServiceLock, nullptr);
    DisplayEngineCleanCommon::initLogSwitch();
}

DisplayEngineManager::~DisplayEngineManager() {
    pthread_mutex_destroy(&mServiceLock);
    if (IDisplayEngineService* service = mService) {
        service->decStrong(this);
    }
}

sp<IDisplayEngineService> DisplayEngineManager::getService() {
    IDisplayEngineService* known = mService.load(std::memory_order_acquire);
    if (known != nullptr) {
        return known;
    }
    const PosixLock lock(mServiceLock);
    known = mService.load(std::memory_order_relaxed);
    if (known == nullptr) {
        const sp<IDisplayEngineService> found = getDisplayEngineService();
        if (found != nullptr) {
            found->incStrong(this);
            known = found.get();
            mService.store(known, std::memory_order_release);
        }
    }

    return known;
}

bool DisplayEngineManager::isVideoEngineSupported() {
    return VideoEngine::get().isSupported();
}

bool DisplayEngineManager::needVideoEnhance() {
    return VideoEngine::get().needEnhance();
}

bool DisplayEngineManager::getVideoAppConfig() {
    return VideoEngine::get().getAppConfig();
}

void DisplayEngineManager::onVideoAppStart() {
    VideoEngine::get().onAppStart();
}

void DisplayEngineManager::onVideoAppStop() {
    VideoEngine::get().onAppStop();
}

void DisplayEngineManager::onVideoStart() {
    VideoEngine::get().onVideoStart();
}

void DisplayEngineManager::onVideoStop() {
    VideoEngine::get().onVideoStop();
}

void DisplayEngineManager::setAisrEnable(bool enable) {
    VideoEngine::get().setAisrEnable(enable);
}

void DisplayEngineManager::setVideoRect(int width, int height) {
    VideoEngine::get().setRect(width, height);
}

void DisplayEngineManager::setVideoFrameRate(int fps) {
    VideoEngine::get().setFrameRate(fps);
}

void DisplayEngineManager::doVideoEnhance(Aisr::BufferInfo& info) {
    VideoEngine::get().enhance(info);
}
