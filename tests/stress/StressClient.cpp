// SPDX-License-Identifier: Apache-2.0
// A client that calls every operation of the facade on many threads at once, and exits in the
// middle of it. Nothing here takes a lock or otherwise puts the threads in order: that would hide
// races.
//
//     stress_client SEED OPERATIONS
//
// It exits when that many operations were called, even while the engine is being brought up if
// there are none. Its one line tells what came of them.
#include <android/log.h>
#include <binder/ProcessState.h>
#include <cutils/properties.h>
#include <semaphore.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <thread>

#include "aidl/BnDisplayEngineCallback.h"
#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/AisrProcess.h"

using android::sp;
using android::binder::Status;

namespace {

using Manager = DisplayEngineManager;
using Random = std::minstd_rand;

constexpr int kManagers = 3;  // Each with a thread of its own.
constexpr int kFrameThreads = 4;
constexpr int kWidth = 32;
constexpr int kHeight = 16;
constexpr int kNumbers = 900;  // What the operations are called with stays below.

// Static like the planes, or never destroyed: threads go on while the process exits.
sp<Manager>* gManagers = new sp<Manager>[kManagers];
char gPlanes[kFrameThreads][kWidth * kHeight * 3 / 2];
sem_t gEnough;
std::atomic<int64_t> gLeft;
std::atomic<int> gEvents{0};
std::atomic<int> gCancelled{0};

constexpr auto kRelaxed = std::memory_order_relaxed;

class Callback : public com::tivora::displayengine::BnDisplayEngineCallback {
public:
    Status onEvent(int32_t /*event*/, int32_t /*value*/) override { return Status::ok(); }
    Status onEventWithData(int32_t /*event*/,
                           const android::os::PersistableBundle& /*data*/) override {
        gEvents.fetch_add(1, kRelaxed);
        return Status::ok();
    }
};

/** All but the frames' and the brightness: on any manager, from any thread, at the exit as well. */
void (*const kOperations[])(const sp<Manager>&, int number) = {
    [](auto& manager, int) { manager->isVideoEngineSupported(); },
    [](auto& manager, int) { manager->getVideoAppConfig(); },
    [](auto& manager, int) { manager->onVideoAppStart(); },
    [](auto& manager, int) { manager->onVideoAppStop(); },
    [](auto& manager, int) { manager->onVideoStart(); },
    [](auto& manager, int) { manager->onVideoStop(); },
    [](auto& manager, int number) { manager->setAisrEnable(number % 2 == 0); },
    [](auto& manager, int number) { manager->setVideoRect(number, kNumbers - number); },
    [](auto& manager, int number) { manager->setVideoFrameRate(number % 60); },
    [](auto& manager, int) { manager->getService(); },
    [](auto& manager, int number) {
        std::string name = std::to_string(number % 60);
        manager->setFrameRate(name);
        manager->getPanelName(name);
    },
    [](auto& manager, int) { manager->getReadingSupport(); },
    [](auto& manager, int) { manager->getFoldingCompensationAlpha(); },
    [](auto& manager, int) { manager->getLocalHBMSupport(); },
    [](auto& manager, int number) { manager->setScene(21, number % 100); },
    [](auto& manager, int) {
        const sp<Callback> callback = new Callback;
        manager->registerCallback(callback);
        manager->getReadingSupport();
        manager->unregisterCallback(callback);
    },
    [](auto&, int) { sp<Manager>(new Manager)->getService(); },
    [](auto&, int) { getDisplayEngineService(); },
    [](auto&, int) { checkDisplayEngineService(); },
    [](auto&, int number) { setCwbForceEnable(number % 3); },
};

[[noreturn]] void callForever(int index, Random random) {
    for (;;) {
        gManagers[index]->displayengineSetBrightness(static_cast<int>(random() % 256));
        kOperations[random() % std::size(kOperations)](gManagers[random() % kManagers],
                                                       static_cast<int>(random() % kNumbers));
        if (gLeft.fetch_sub(1, kRelaxed) == 1) {
            sem_post(&gEnough);
        }
    }
}

[[noreturn]] void offerFrames(int index, Random random) {
    char* const planes = gPlanes[index];
    uint64_t stream = 1;
    for (;;) {
        stream = random() % 16 == 0 ? random() % 3 : stream;  // There is no stream 0.
        Aisr::BufferInfo info{stream, planes, &planes[kWidth * kHeight], kWidth, kHeight,
                              kWidth, 0};
        const sp<Manager>& manager = gManagers[random() % kManagers];
        manager->needVideoEnhance();
        manager->doVideoEnhance(info);
    }
}

}  // namespace

/** The sample library asks this before it does what it is called for. */
extern "C" int32_t aisrControlledEntry(const char* entry, void** /*context*/, int32_t tag,
                                       const void* /*data*/, uint64_t /*size*/) {
    static std::atomic<uint32_t> calls{0};
    const uint32_t call = calls.fetch_add(1, kRelaxed);
    if (std::strcmp(entry, "AisrInit") == 0) {
        return call % 8 == 0 ? AISR_ERR_FATAL : AISR_SUCCESS;
    }
    if (tag == AISR_TAG_SET_TIMEOUT) {
        gCancelled.fetch_add(1, kRelaxed);
    }
    if (std::strcmp(entry, "AisrProcess") == 0 && call % 8 == 0) {
        usleep(4000);  // Longer than a frame may take.
    }
    return AISR_SUCCESS;
}

// The thread sanitizer's pause at the end, in which it looks for late races, is a second otherwise.
extern "C" const char* __tsan_default_options() {
    return "atexit_sleep_ms=50";
}

int main(int /*argc*/, char** argv) {
    const auto seed = static_cast<unsigned>(std::atoi(argv[1]));
    const int64_t operations = std::atoi(argv[2]);
    alarm(120);  // A client that hangs is ended by a signal.
    __android_log_set_logger([](const __android_log_message*) {});  // It would be no end of text.
    property_set("persist.displayengine.log", seed % 4 < 2 ? "true" : "false");
    for (int i = 0; i < kManagers; ++i) {
        gManagers[i] = new Manager;
    }
    if (seed % 2 == 0) {  // Then the pool ends before the engine, otherwise after it.
        gManagers[0]->isVideoEngineSupported();
    }
    android::ProcessState::self()->startThreadPool();
    sem_init(&gEnough, 0, operations == 0 ? 1 : 0);
    gLeft = operations;
    for (int i = 0; i < kFrameThreads && operations > 0; ++i) {
        std::thread(offerFrames, i, Random(seed * 16 + 8 + static_cast<unsigned>(i))).detach();
    }
    for (int i = 0; i < kManagers; ++i) {
        std::thread(callForever, i, Random(seed * 16 + static_cast<unsigned>(i))).detach();
    }
    sem_wait(&gEnough);
    std::cout << gEvents << " " << gCancelled << std::endl;
    return 0;
}
