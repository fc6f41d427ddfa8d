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
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <thread>
#include <vector>

#include "aidl/BnDisplayEngineCallback.h"
#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/AisrProcess.h"

using android::sp;
using android::binder::Status;

namespace {

using Manager = DisplayEngineManager;
using Random = std::minstd_rand;

constexpr unsigned kDeadlineSeconds = 120;  // A client that hangs is ended by a signal.
constexpr int kManagers = 3;                // Each with a thread of its own.
constexpr int kFrameThreads = 4;
constexpr std::chrono::milliseconds kSlow{4};  // Longer than a frame may take.
constexpr int kWidth = 32;
constexpr int kHeight = 16;

// Static like the planes, or never destroyed: threads go on while the process exits.
sp<Manager>* gManagers = new sp<Manager>[kManagers];
char gPlanes[kFrameThreads][kWidth * kHeight * 3 / 2];
sem_t gEnough;
std::atomic<int64_t> gLeft;
std::atomic<int> gEvents{0};
std::atomic<int> gProcessed{0};
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

/** All but the frames' and the brightness: on any manager, from any thread, also during the exit.
 */
void (*const kOperations[])(const sp<Manager>&, Random&) = {
    [](auto& manager, auto&) { manager->isVideoEngineSupported(); },
    [](auto& manager, auto&) { manager->getVideoAppConfig(); },
    [](auto& manager, auto&) { manager->onVideoAppStart(); },
    [](auto& manager, auto&) { manager->onVideoAppStop(); },
    [](auto& manager, auto&) { manager->onVideoStart(); },
    [](auto& manager, auto&) { manager->onVideoStop(); },
    [](auto& manager, auto& random) { manager->setAisrEnable(random() % 2 == 0); },
    [](auto& manager, auto& random) {
        manager->setVideoRect(static_cast<int>(random() % 900), static_cast<int>(random() % 900));
    },
    [](auto& manager, auto& random) {
        manager->setVideoFrameRate(static_cast<int>(random() % 60));
    },
    [](auto& manager, auto&) { manager->getService(); },
    [](auto& manager, auto&) {
        std::string name;
        manager->getPanelName(name);
    },
    [](auto& manager, auto&) { manager->getReadingSupport(); },
    [](auto& manager, auto&) { manager->getFoldingCompensationAlpha(); },
    [](auto& manager, auto&) { manager->getLocalHBMSupport(); },
    [](auto& manager, auto& random) { manager->setScene(21, static_cast<int>(random() % 100)); },
    [](auto& manager, auto& random) { manager->setFrameRate(std::to_string(random() % 60)); },
    [](auto& manager, auto&) {
        const sp<Callback> callback = new Callback;
        manager->registerCallback(callback);
        manager->getReadingSupport();
        manager->unregisterCallback(callback);
    },
    [](auto&, auto&) { sp<Manager>(new Manager)->getService(); },
    [](auto&, auto&) { getDisplayEngineService(); },
    [](auto&, auto&) { checkDisplayEngineService(); },
    [](auto&, auto& random) { setCwbForceEnable(static_cast<int32_t>(random() % 3)); },
};

[[noreturn]] void callForever(int index, Random random) {
    for (;;) {
        gManagers[index]->displayengineSetBrightness(static_cast<int>(random() % 256));
        kOperations[random() % std::size(kOperations)](gManagers[random() % kManagers], random);
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

void run(unsigned seed, int64_t operations) {
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
    while (sem_wait(&gEnough) != 0) {
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
    if (std::strcmp(entry, "AisrProcess") == 0) {
        gProcessed.fetch_add(1, kRelaxed);
        if (call % 8 == 0) {
            std::this_thread::sleep_for(kSlow);
        }
    }
    return AISR_SUCCESS;
}

// The thread sanitizer's pause at the end, in which it looks for late races, is a second otherwise.
extern "C" const char* __tsan_default_options() {
    return "atexit_sleep_ms=50";
}

int main(int argc, char** argv) {
    if (argc != 3) {
        return 2;
    }
    alarm(kDeadlineSeconds);
    __android_log_set_logger([](const __android_log_message*) {});  // It would be no end of text.
    run(static_cast<unsigned>(std::atoi(argv[1])), std::atoi(argv[2]));
    std::cout << gEvents << " " << gProcessed << " " << gCancelled << std::endl;
    return 0;
}
