// SPDX-License-Identifier: Apache-2.0
// Memory runs out once, at the first, second, third ... allocation of an operation, until a run
// passes untouched: each time the operation answers its failure value or does without, no exception
// comes out, nothing stays behind, and the next call works.
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "aidl/BnDisplayEngineCallback.h"
#include "aidl/TransactionCodes.h"
#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/DisplayEngineCleanCommon.h"
#include "media/VideoSession.h"
#include "support/ChildProcess.h"
#include "support/EngineService.h"
#include "support/ProcessingLibrary.h"
#include "support/TestMain.h"
#include "support/ThreadState.h"

using android::NO_MEMORY;
using android::OK;
using android::Parcel;
using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using com::tivora::displayengine::BnDisplayEngineCallback;
using com::tivora::displayengine::DeGraphicBuffer;
using com::tivora::displayengine::IDisplayEngineCallback;
using com::tivora::displayengine::IDisplayEngineService;

namespace {

std::atomic<int> gLeft{0};        // allocations up to the one that fails; 0 when none is to fail
std::atomic<int64_t> gLiving{0};  // what is allocated

void* allocate(size_t size) noexcept {
    if (gLeft > 0 && --gLeft == 0) {
        return nullptr;
    }
    void* const memory = std::malloc(size);
    gLiving += memory != nullptr ? 1 : 0;
    return memory;
}

void release(void* memory) noexcept {
    gLiving -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

}  // namespace

void* operator new(size_t size) {
    void* const memory = allocate(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return allocate(size);
}
void operator delete(void* memory) noexcept {
    release(memory);
}
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    release(memory);
}
void operator delete(void* memory, size_t /*size*/) noexcept {
    release(memory);
}

namespace {

constexpr char kServiceArgument[] = "--service";
constexpr char kBringUpArgument[] = "--bring-up";
constexpr int kMost = 2000;  // More allocations than any operation makes.
const std::string kLongText = "a text that does not fit into the string itself";

struct Operation {
    std::string name;
    std::function<int()> call; /**< Its answer; what it allocates itself would be counted too. */
    int failure;               /**< The answer when memory runs out. */
};

/** Calls with the allocation of this number failing; whether fewer were made. */
bool callFailing(int number, const std::function<int()>& call, int* answer) {
    gLeft = number;
    try {
        *answer = call();
    } catch (...) {
        gLeft = 0;
        ADD_FAILURE() << "an exception came out";
    }
    return gLeft.exchange(0) > 0;
}

/** Waits, ten seconds at most: another thread may still be about to let go of a frame. */
bool returnsTo(int64_t living) {
    const std::time_t deadline = std::time(nullptr) + kPatienceSeconds;
    while (gLiving > living && std::time(nullptr) < deadline) {
        std::this_thread::yield();
    }
    return gLiving <= living;
}

/** `prepare` is called before each attempt; its allocations do not count. */
void sweep(const Operation& operation, const std::function<void()>& prepare) {
    SCOPED_TRACE(operation.name);
    prepare();
    operation.call();  // What is made once and kept does not count.
    prepare();
    const int good = operation.call();
    int64_t living = gLiving;
    for (int number = 1; number < kMost && !testing::Test::HasFailure(); ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        prepare();
        int answer = good;
        const bool isUntouched = callFailing(number, operation.call, &answer);
        if (answer != good) {
            EXPECT_EQ(answer, operation.failure);
        }
        prepare();
        EXPECT_EQ(operation.call(), good) << "the next call";
        EXPECT_TRUE(returnsTo(living)) << gLiving - living << " allocations stayed behind";
        living = std::min<int64_t>(living, gLiving);
        if (isUntouched) {
            return;
        }
    }
    EXPECT_TRUE(testing::Test::HasFailure()) << "no run passed untouched";
}

int answer(const Status& status) {
    return status.isOk() ? OK : status.transactionError();
}

class Callback : public BnDisplayEngineCallback {
    Status onEvent(int32_t, int32_t) override { return Status::ok(); }
    Status onEventWithData(int32_t, const PersistableBundle&) override { return Status::ok(); }
};

/** A service in a process of its own. */
struct RemoteService {
    RemoteService() { EXPECT_TRUE(process.waitForLine("ready")); }

    ChildProcess process{ChildProcess::ownPath(), {kServiceArgument}};
};

TEST(AllocationSweepTest, ATransactionAnswersNoMemory) {
    const RemoteService remote;
    const sp<Callback> callback = new Callback;
    int32_t result = 0;
    const sp<IDisplayEngineService> service = getDisplayEngineService();
    ASSERT_NE(service, nullptr);
    PersistableBundle data;
    data.putString(String16("Key"), String16(kLongText.c_str()));
    bool isAccepted = false;
    const std::function<Status()> transactions[] = {
        [&] { return service->getSupported(1, &result); },
        [&] { return service->setScene(1, 2, &result); },
        [&] { return service->setData(1, data, &result); },
        [&] {
            std::vector<int32_t> values;
            return service->getEffectEx(1, 2, &values, 0, &result);
        },
        [&] {
            std::vector<uint8_t> bytes;
            return service->getEffect(1, 2, &bytes, 0, &result);
        },
        [&] {
            std::vector<int32_t> values;
            return service->getEffectExByData(1, data, &values, &result);
        },
        [&] { return service->setEffect(1, 2, data, &result); },
        [&] { return service->registerCallback(callback); },
        [&] { return service->registerCallbackEx(callback, data, &isAccepted); },
        [&] { return service->unregisterCallback(callback); },
        [&] { return service->unregisterCallbackEx(data); },
        [&] {
            DeGraphicBuffer input;
            DeGraphicBuffer output;
            return service->processGraphicBuffer(1, 2, &input, &output, &result);
        },
    };
    static_assert(std::size(transactions) == com::tivora::displayengine::kServiceCodeCount);
    int code = 0;
    for (const auto& transact : transactions) {
        sweep({"transaction " + std::to_string(++code), [&] { return answer(transact()); },
               NO_MEMORY},
              [] {});
    }
}

TEST(AllocationSweepTest, AMethodAnswersItsFailureValue) {
    const RemoteService remote;
    const sp<Callback> callback = new Callback;
    sp<DisplayEngineManager> manager;
    const Operation methods[] = {
        {"brightness", [&] { return std::max(manager->displayengineSetBrightness(7), 0); }, 0},
        {"panel name",
         [&] {
             std::string name;
             return manager->getPanelName(name);
         },
         -1},
        {"reading", [&] { return manager->getReadingSupport(); }, 0},
        {"global reading", [&] { return manager->getGlobalReadingSupport(); }, 0},
        {"folding", [&] { return manager->getFoldingCompensationSupported(); }, 0},
        {"alpha", [&] { return manager->getFoldingCompensationAlpha(); }, 1023},
        {"local HBM", [&] { return manager->getLocalHBMSupport(); }, 0},
        {"scene", [&] { return manager->setScene(1, 2); }, -22},
        {"frame rate", [&] { return manager->setFrameRate(kLongText); }, -22},
        {"CWB", [] { return setCwbForceEnable(1); }, -22},
        {"lookup", [] { return getDisplayEngineService() != nullptr ? 1 : 0; }, 0},
        {"look", [] { return checkDisplayEngineService() != nullptr ? 1 : 0; }, 0},
        {"callbacks",
         [&] {
             manager->registerCallback(callback);
             manager->unregisterCallback(callback);
             return 0;
         },
         0},
    };
    for (const Operation& method : methods) {
        // A manager of its own, since one asks some questions only once.
        sweep(method, [&] { manager = new DisplayEngineManager; });
    }
}

/** The transaction of an "Enable" event, as it arrives. */
void writeEvent(Parcel* event, bool enable) {
    PersistableBundle data;
    data.putBoolean(String16("Enable"), enable);
    event->writeInterfaceToken(IDisplayEngineCallback::descriptor);
    event->writeInt32(IDisplayEngineService::DE_EVENT_AISR);
    EXPECT_EQ(event->writeParcelable(data), OK);
}

/** A session on an engine that is up; `processed` counts its frames. */
void sweepASession(std::atomic<int>& processed, const Aisr::BufferInfo& info) {
    using displayengine::media::VideoSession;
    const VideoSession::Options options{640, 700, 25, [](const __android_log_message*) {}};
    sweep({"session", [&] { return VideoSession::open(options) != nullptr ? 1 : 0; }, 0}, [] {});
    const auto session = VideoSession::open(options);
    int held = 0;
    const auto offerInSession = [&] {
        ++held;
        session->offer({static_cast<uint8_t*>(info.y), static_cast<uint8_t*>(info.uv), 32, 16, 64},
                       [&] { --held; });
        return processed.exchange(0);
    };
    sweep({"session's frame", offerInSession, 0}, [] { processing::takeTexts(); });
    EXPECT_EQ(held, 0) << "a frame is handed back once, if need be after the next";
}

TEST(AllocationSweepTest, AFrameOrAnEventIsLost) {
    const sp<EngineService> service = EngineService::install();
    service->config.abortMs = EngineService::kPatientMs;
    service->config.monitorMaxFps = 1'000'000;
    processing::use("without_nothing");
    const sp<DisplayEngineManager> manager = new DisplayEngineManager;
    manager->onVideoAppStart();
    g_delogdEnable = g_delogiEnable = true;  // The texts for messages are allocated as well.
    std::atomic<int> processed{0};
    processing::setHook([&](const processing::Call& call) {
        processed += call.entry == "AisrProcess" ? 1 : 0;
        return AISR_SUCCESS;
    });
    processing::Frame frame;
    Aisr::BufferInfo info = frame.info(0x1234567812345678);
    const auto offer = [&] {
        manager->doVideoEnhance(info);
        return processed.exchange(0);
    };
    sweep({"frame", offer, 0}, [] { processing::takeTexts(); });

    const sp<android::IBinder> callback = android::IInterface::asBinder(service->callback());
    bool isOn = true;
    std::unique_ptr<Parcel> event;
    const auto prepare = [&] {
        isOn = !isOn;
        event = std::make_unique<Parcel>();
        writeEvent(event.get(), isOn);
    };
    const auto arrive = [&] {
        Parcel reply;
        const android::status_t status = callback->transact(2, *event, &reply, 1);
        const bool isTaken = manager->getVideoAppConfig() == isOn;
        return status == OK && !isTaken ? android::BAD_VALUE : status;
    };
    sweep({"event", arrive, NO_MEMORY}, prepare);

    bool isSmall = true;
    const auto report = [&] {
        manager->setVideoRect(isSmall ? 640 : 720, 700);
        manager->setVideoFrameRate(isSmall ? 25 : 30);
        return 0;
    };
    sweep({"size and rate", report, 0}, [&] { isSmall = !isSmall; });
    manager->setVideoRect(640, 700);
    manager->setVideoFrameRate(25);
    EXPECT_EQ(manager->needVideoEnhance(), isOn);

    manager->setAisrEnable(true);
    sweepASession(processed, info);
    processing::setHook(nullptr);
}

TEST(AllocationSweepTest, ABringUpEndsWithoutAnEngine) {
    const RemoteService remote;
    for (int number = 1; number < kMost; ++number) {
        ChildProcess client(ChildProcess::ownPath(), {kBringUpArgument, std::to_string(number)});
        const std::string said = client.readLine().value_or("");
        ASSERT_EQ(client.wait(), 0) << number << ": " << said;
        if (said == "untouched: 1 1") {
            return;
        }
        ASSERT_TRUE(said == "failed: 0 0" || said == "failed: 1 1") << number << ": " << said;
    }
    ADD_FAILURE() << "no bring-up passed untouched";
}

/** The first video call with its allocation `number` failing, and the same call again. */
int bringUp(int number) {
    processing::use("without_nothing");
    const sp<DisplayEngineManager> manager = new DisplayEngineManager;
    const auto ask = [&] { return manager->isVideoEngineSupported() ? 1 : 0; };
    int first = 0;
    const bool isUntouched = callFailing(number, ask, &first);
    std::cout << (isUntouched ? "untouched: " : "failed: ") << first << " " << ask() << std::endl;
    return testing::Test::HasFailure() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    return testMain(
        argc, argv,
        {{kServiceArgument, [](const std::string&) { return serve(new EngineService); }},
         {kBringUpArgument, [](const std::string& number) { return bringUp(std::stoi(number)); }}});
}
