// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N AISR"

#include <binder/PersistableBundle.h>
#include <fcntl.h>
#include <unistd.h>
#include <utils/String16.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "aidl/CallStatus.h"
#include "aisr/AisrEngine.h"
#include "aisr/Milliseconds.h"
#include "common/Log.h"
#include "common/NoThrow.h"
// The two calls that go up: the service is looked up with the client's function, and an event
// enters the engine through the facade, which knows whether there is an engine.
#include "client/ServiceConnection.h"
#include "client/VideoEngine.h"

using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using com::tivora::displayengine::callStatus;
using com::tivora::displayengine::IDisplayEngineService;

namespace {

constexpr size_t kMaxAppName = 255;
constexpr std::chrono::milliseconds kEndPoll{1};

// Never destroyed: events may come while the process exits.
const String16& kEnableKey = *new String16("Enable");

/** Names this process's registration, when it is made and when it is withdrawn. */
PersistableBundle registrationRecord(const std::string& appName) {
    PersistableBundle record;
    record.putString(String16("Key"), String16(appName.c_str()));
    record.putInt(String16("Feature"), IDisplayEngineService::DE_FEATURE_AISR);
    return record;
}

}  // namespace

bool AisrEngine::initialize() {
    if (mIsInitialized) {
        return true;
    }
    if (!updateAppName()) {
        return false;
    }
    const auto start = SteadyClock::now();
    const sp<IDisplayEngineService> service = checkDisplayEngineService();
    const float lookupMs = toMilliseconds(SteadyClock::now() - start);
    if (service == nullptr) {
        DE_LOGE("Failed to get displayengineserver binder(%gms)!", lookupMs);
        return false;
    }
    DE_LOGI("get service %gms", lookupMs);
    // The registration comes last, so that a failure leaves none behind.
    if (!getConfig(service) || !registerCallback(service)) {
        return false;
    }
    mIsInitialized = true;
    return true;
}

bool AisrEngine::updateAppName() {
    if (!mAppName.empty()) {
        return true;
    }
    const std::string path = "/proc/" + std::to_string(getpid()) + "/cmdline";
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) {
        DE_LOGW("Failed to open %s! %s", path.c_str(), strerror(errno));
        return false;
    }
    // The arguments stand behind the name, each after a NUL.
    char name[kMaxAppName + 1] = {};
    const ssize_t size = read(file, name, kMaxAppName);
    if (size <= 0) {
        DE_LOGW("Failed to read %s! %s", path.c_str(), strerror(errno));
        close(file);
        return false;
    }
    close(file);
    mAppName = name;
    DE_LOGD("%s", mAppName.c_str());
    return true;
}

bool AisrEngine::registerCallback(sp<IDisplayEngineService> service) {
    // The object's bases allocate as well, and report a failure by an exception.
    const auto callback = noThrow(sp<ClientCallback>(), [] {
        return sp<ClientCallback>(new (std::nothrow) ClientCallback());
    });
    if (callback == nullptr) {
        DE_LOGE("new ClientCallback() failed!");
        return false;
    }
    bool result = false;
    const Status status = callStatus([&] {
        return service->registerCallbackEx(callback, registrationRecord(mAppName), &result);
    });
    if (!status.isOk()) {
        DE_LOGE("registerCallbackEx(callback, data:{ key:%s feature:%d }) failed!",
                mAppName.c_str(), IDisplayEngineService::DE_FEATURE_AISR);
        return false;
    }
    DE_LOGD("key:%s feature:%d %s", mAppName.c_str(), IDisplayEngineService::DE_FEATURE_AISR,
            result ? "success." : "failed!");
    return result;
}

void AisrEngine::unregisterCallback(sp<IDisplayEngineService> service) {
    const Status status =
        callStatus([&] { return service->unregisterCallbackEx(registrationRecord(mAppName)); });
    if (!status.isOk()) {
        DE_LOGW("unregisterCallbackEx(data:{ key:%s feature:%d }) failed!", mAppName.c_str(),
                IDisplayEngineService::DE_FEATURE_AISR);
        return;
    }
    DE_LOGD("key:%s feature:%d success.", mAppName.c_str(), IDisplayEngineService::DE_FEATURE_AISR);
}

AisrEngine::~AisrEngine() {
    DE_LOGD("step in");
    if (mIsInitialized) {
        const auto start = SteadyClock::now();
        const sp<IDisplayEngineService> service = checkDisplayEngineService();
        const float lookupMs = toMilliseconds(SteadyClock::now() - start);
        if (service == nullptr) {
            DE_LOGW("Failed to get displayengineserver binder(%gms)!", lookupMs);
        } else {
            DE_LOGD("get service %gms -> unregisterCallback()", lookupMs);
            unregisterCallback(service);
        }
    }

    DE_LOGD("mIsEnhanceAlive=false");
    {
        const DeMutexLock lock(mTaskMutex);
        mIsInitialized = false;  // For calls that are about to enter.
        mIsEnhanceAlive = false;
    }
    mTaskCond.notify_one();
    if (mThread.joinable()) {
        DE_LOGD("join");
        mThread.join();
    }
    {
        const DeMutexLock lock(mTaskMutex);
        mTasks.clear();  // The caller of a frame that was still queued wakes.
    }
    // Polled, because a caller's last step must not touch anything that ends here.
    while (mWaitingCallers != 0) {
        std::this_thread::sleep_for(kEndPoll);
    }
}

AisrEngine::ClientCallback::~ClientCallback() = default;

Status AisrEngine::ClientCallback::onEvent(int /*event*/, int /*value*/) {
    return Status::ok();
}

Status AisrEngine::ClientCallback::onEventWithData(int event, const PersistableBundle& data) {
    if (event != IDisplayEngineService::DE_EVENT_AISR) {
        DE_LOGW("Invalid input: event:%d(expeted IDisplayEngineService::DE_EVENT_AISR:%d)!", event,
                IDisplayEngineService::DE_EVENT_AISR);
        return Status::ok();
    }
    bool enable = false;
    if (!data.getBoolean(kEnableKey, &enable)) {
        DE_LOGW("Invalid input: no \"Enable\" found in data!");
        return Status::ok();
    }
    DE_LOGI("Enable:%d", enable);
    VideoEngine::get().setAisrEnable(enable);
    return Status::ok();
}
