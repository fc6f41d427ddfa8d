// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N VideoEngine"

#include "client/VideoEngine.h"

#include <binder/Status.h>

#include <chrono>
#include <thread>
#include <utility>

#include "aisr/Milliseconds.h"
#include "client/ServiceConnection.h"
#include "common/Log.h"

using android::sp;
using android::binder::Status;
using com::tivora::displayengine::IDisplayEngineService;

namespace {

constexpr int32_t kUndetermined = 0;
constexpr int32_t kValid = 1;
constexpr int32_t kInvalid = -1;

constexpr int32_t kSupported = 1;
constexpr std::chrono::milliseconds kExitPoll{1};

}  // namespace

/**
 * Keeps the engine while an operation uses it that may be under way when the process exits: an
 * event, a report of the client, the determination of the validity. Frames do without.
 *
 * Count first and look at the mark second, while the destructor sets the mark first and looks at
 * the count second: one of the two sees the other.
 */
class VideoEngine::Visit {
public:
    explicit Visit(VideoEngine& engine) : mEngine(engine) { ++mEngine.mVisitCount; }
    ~Visit() { --mEngine.mVisitCount; }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

    bool isAllowed() const { return !mEngine.mIsClosed; }

private:
    VideoEngine& mEngine;
};

VideoEngine& VideoEngine::get() {
    // Constant-initialised, so it is in place at load. Its first use registers the destructor,
    // which therefore runs before those of everything that was built at load.
    static VideoEngine videoEngine;
    return videoEngine;
}

VideoEngine::~VideoEngine() {
    {
        const DeMutexLock lock(mAisrMutex);
        mIsClosed = true;
        mAisrValid = kInvalid;
    }
    // The longest visits wait for the frame in processing, or for the processing library to
    // initialise; its entries therefore must not call exit. The wait polls, because a condition
    // variable would have to outlive this object: the last visitor still touches it after the
    // count is down.
    while (mVisitCount != 0) {
        std::this_thread::sleep_for(kExitPoll);
    }
    mAisrEngine.reset();
}

bool VideoEngine::isAisrProcessorSupported() {
    const auto start = std::chrono::steady_clock::now();
    const sp<IDisplayEngineService> service = checkDisplayEngineService();
    const float lookupMs = toMilliseconds(std::chrono::steady_clock::now() - start);
    if (service == nullptr) {
        DE_LOGW("Failed to get displayengineserver binder(%gms)!", lookupMs);
        return false;
    }
    DE_LOGI("get service %gms", lookupMs);
    int32_t support = 0;
    const Status status = service->getSupported(IDisplayEngineService::DE_FEATURE_AISR, &support);
    if (!status.isOk()) {
        DE_LOGW("getSupported(DE_FEATURE_AISR, &support) failed!");
        return false;
    }
    return support == kSupported;
}

bool VideoEngine::isAisrValid() {
    const int32_t valid = mAisrValid.load(std::memory_order_acquire);
    if (valid != kUndetermined) {
        return valid == kValid;
    }

    const Visit visit(*this);
    if (!visit.isAllowed()) {
        return false;
    }
    // A caller that waited here while another one settled the validity asks the service again all
    // the same, and finds the engine in place.
    const DeMutexLock lock(mAisrMutex);
    if (!visit.isAllowed()) {
        return false;
    }
    if (!isAisrProcessorSupported()) {
        DE_LOGW("AisrProcessor is NOT supported!");
        mAisrValid.store(kInvalid, std::memory_order_release);
        return false;
    }
    DE_LOGD("AisrProcessor is supported.");
    if (mAisrEngine == nullptr) {
        DE_LOGD("Start to load AISR......");
        auto created = std::make_unique<AisrEngine>();
        if (!created->initialize()) {
            DE_LOGW("AisrEngine initialize() failed!");
            created.reset();
            mAisrValid.store(kInvalid, std::memory_order_release);
            return false;
        }
        mAisrEngine = std::move(created);
    }
    DE_LOGD("Load AISR successfully.");
    mAisrValid.store(kValid, std::memory_order_release);
    return true;
}

bool VideoEngine::isSupported() {
    return isAisrValid();
}

inline bool VideoEngine::hasEngine() {
    const int32_t valid = mAisrValid.load(std::memory_order_acquire);
    return valid == kUndetermined ? isAisrValid() : valid == kValid;
}

bool VideoEngine::needEnhance() {
    return hasEngine() && engine().needEnhance();
}

void VideoEngine::enhance(Aisr::BufferInfo& info) {
    if (hasEngine()) {
        engine().enhance(info);
    }
}

bool VideoEngine::getAppConfig() {
    const Visit visit(*this);
    return visit.isAllowed() && isAisrValid() && engine().getAppConfig();
}

template <typename OPERATION>
void VideoEngine::withEngine(OPERATION operation) {
    const Visit visit(*this);
    if (visit.isAllowed() && isAisrValid()) {
        operation(engine());
    }
}

void VideoEngine::onAppStart() {
    withEngine([](AisrEngine& engine) { engine.onAppStart(); });
}

void VideoEngine::onAppStop() {
    withEngine([](AisrEngine& engine) { engine.onAppStop(); });
}

void VideoEngine::onVideoStart() {
    withEngine([](AisrEngine& engine) { engine.onVideoStart(); });
}

void VideoEngine::onVideoStop() {
    withEngine([](AisrEngine& engine) { engine.onVideoStop(); });
}

void VideoEngine::setAisrEnable(bool enable) {
    withEngine([=](AisrEngine& engine) { engine.setEnable(enable); });
}

void VideoEngine::setRect(int width, int height) {
    withEngine([=](AisrEngine& engine) { engine.setRect(width, height); });
}

void VideoEngine::setFrameRate(int fps) {
    withEngine([=](AisrEngine& engine) { engine.setFrameRate(fps); });
}
