// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N VideoEngine"

#include "client/VideoEngine.h"

#include <binder/Status.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <utility>

#include "aisr/Milliseconds.h"
#include "client/ServiceConnection.h"
#include "common/CountedScope.h"
#include "common/Log.h"
#include "common/NoThrow.h"

using android::sp;
using android::binder::Status;
using com::tivora::displayengine::IDisplayEngineService;

namespace {

constexpr int32_t kUndetermined = 0;
constexpr int32_t kValid = 1;
constexpr int32_t kInvalid = -1;

constexpr int32_t kSupported = 1;
constexpr std::chrono::milliseconds kExitPoll{1};
constexpr int kMaxBringUpPolls = 1000;

}  // namespace

/**
 * Keeps the engine while an operation uses it that may be under way when the process exits: an
 * event or a report of the client. Frames are counted by the engine itself.
 *
 * It looks at the closed mark, counts and looks again, while the destructor sets the mark and then
 * looks at the count: one of the two sees the other, and once the mark is set the count can only
 * fall.
 */
class VideoEngine::OperationInFlight {
public:
    explicit OperationInFlight(VideoEngine& engine) : mEngine(engine) {
        if (mEngine.mIsClosed) {
            return;
        }
        ++mEngine.mInFlightCount;
        mIsAdmitted = !mEngine.mIsClosed;
        if (!mIsAdmitted) {
            --mEngine.mInFlightCount;
        }
    }
    ~OperationInFlight() {
        if (mIsAdmitted) {
            --mEngine.mInFlightCount;
        }
    }
    OperationInFlight(const OperationInFlight&) = delete;
    OperationInFlight& operator=(const OperationInFlight&) = delete;

    bool isAdmitted() const { return mIsAdmitted; }

private:
    VideoEngine& mEngine;
    bool mIsAdmitted = false;
};

VideoEngine& VideoEngine::get() {
    // Constant-initialised, so it is in place at load. Its first use registers the destructor,
    // which therefore runs before those of everything that was built at load.
    static VideoEngine videoEngine;
    return videoEngine;
}

VideoEngine::~VideoEngine() {
    if (!close()) {
        return;
    }
    // A bring-up that is under way withdraws what it has registered, if the service answers it: it
    // gets a second for that, and no more.
    for (int polls = 0; mBringUpCount != 0 && polls < kMaxBringUpPolls; ++polls) {
        std::this_thread::sleep_for(kExitPoll);
    }
    AisrEngine* const engine = mAisrEngine;
    if (engine == nullptr) {
        return;
    }
    // The longest operations wait for the frame in processing, or for the processing library to
    // initialise; its entries therefore must not call exit. The wait polls, because a condition
    // variable would have to outlive this object: the last operation still touches it after the
    // count is down.
    while (mInFlightCount != 0) {
        std::this_thread::sleep_for(kExitPoll);
    }
    // In place: frames may still be offered, and find an engine that is not initialised.
    engine->~AisrEngine();
}

bool VideoEngine::close() {
    // The child of a fork has the parent's engine without its worker, and mutexes that a thread of
    // the parent may have held; the registration is the parent's as well.
    if (mProcess != getpid()) {
        mIsClosed = true;
        mAisrValid = kInvalid;
        return false;
    }
    const DeMutexLock lock(mOutcomeMutex);
    mIsClosed = true;
    mAisrValid = kInvalid;
    return true;
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

    mProcess = getpid();
    const CountedScope bringUp(mBringUpCount);
    // A caller that waited here while another one settled the validity asks the service again all
    // the same, and finds the engine in place.
    const DeMutexLock lock(mAisrMutex);
    if (mIsClosed) {
        return false;
    }
    if (!noThrow(false, isAisrProcessorSupported)) {
        DE_LOGW("AisrProcessor is NOT supported!");
        return settle(kInvalid, nullptr);
    }
    DE_LOGD("AisrProcessor is supported.");
    std::unique_ptr<AisrEngine> created;
    if (mAisrEngine == nullptr) {
        if (mIsClosed) {
            return false;  // The exit began while the service was asked.
        }
        DE_LOGD("Start to load AISR......");
        created =
            noThrow(std::unique_ptr<AisrEngine>(), [] { return std::make_unique<AisrEngine>(); });
        const bool isInitialized =
            created != nullptr && noThrow(false, [&] { return created->initialize(); });
        if (!isInitialized) {
            DE_LOGW("AisrEngine initialize() failed!");
            return settle(kInvalid, nullptr);
        }
    }
    DE_LOGD("Load AISR successfully.");
    return settle(kValid, std::move(created));
}

bool VideoEngine::settle(int32_t outcome, std::unique_ptr<AisrEngine> created) {
    const DeMutexLock lock(mOutcomeMutex);
    if (mIsClosed) {
        return false;  // `created` comes too late, and is destroyed after the mutex is let go of.
    }
    if (created != nullptr) {
        mAisrEngine = created.release();
    }
    mAisrValid.store(outcome, std::memory_order_release);
    return outcome == kValid;
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
        noThrow(false, [&] {
            engine().enhance(info);
            return true;
        });
    }
}

bool VideoEngine::getAppConfig() {
    if (!hasEngine()) {
        return false;
    }
    const OperationInFlight inFlight(*this);
    return inFlight.isAdmitted() && engine().getAppConfig();
}

template <typename OPERATION>
void VideoEngine::withEngine(OPERATION operation) {
    if (!hasEngine()) {
        return;
    }
    const OperationInFlight inFlight(*this);
    if (inFlight.isAdmitted()) {
        noThrow(false, [&] {
            operation(engine());
            return true;
        });
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
