#include "client/DisplayEngineManager.h"

#include "client/ServiceConnection.h"
#include "client/VideoEngine.h"
#include "common/DisplayEngineCleanCommon.h"

using android::sp;
using com::tivora::displayengine::IDisplayEngineService;

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
    pthread_mutex_lock(&mServiceLock);
    known = mService.load(std::memory_order_relaxed);
    if (known == nullptr) {
        const sp<IDisplayEngineService> found = getDisplayEngineService();
        if (found != nullptr) {
            found->incStrong(this);
            known = found.get();
            mService.store(known, std::memory_order_release);
        }
    }
    pthread_mutex_unlock(&mServiceLock);
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
