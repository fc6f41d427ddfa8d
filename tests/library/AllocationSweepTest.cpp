// SPDX-License-Identifier: Apache-2.0
// Memory runs out once, at the first, second, third ... allocation of an operation, until a run
// passes untouched: each time the operation answers its failure value or does without, no exception
// comes out, nothing stays behind, and the next call works.
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>

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
#include "client/VideoEngine.h"
#include "common/DisplayEngineCleanCommon.h"
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
void operator delete(void* memory, size_t /*size*/) noexcept {
    release(memory);
}

namespace {

constexpr char kServiceArgument[] = "--service";
constexpr char kBringUpArgument[] = "--bring-up";
constexpr int kMost = 2000;  // More allocations than any operation makes.

enum class Outcome { GOOD, FAILED, WRONG };

/** One attempt at an operation. Only the call has its allocations counted. */
struct Attempt {
    std::function<void()> call;
    std::function<Outcome()> judge; /**< What has come of the call. */
};

/** Calls with the allocation of this number failing; whether fewer were made. */
bool callFailing(int number, const std::function<void()>& call) {
    gLeft = number;
    try {
        call();
    } catch (...) {
        gLeft = 0;
        ADD_FAILURE() << "an exception came out";
    }
    return gLeft.exchange(0) > 0;
}

void expectGood(const std::function<Attempt()>& prepare, const char* which) {
    const Attempt attempt = prepare();
    attempt.call();
    EXPECT_EQ(attempt.judge(), Outcome::GOOD) << which;
}

/** Waits, ten seconds at most: another thread may still be about to let go of a frame. */
bool returnsTo(int64_t living) {
    const std::time_t deadline = std::time(nullptr) + kPatienceSeconds;
    while (gLiving != living && std::time(nullptr) < deadline) {
        std::this_thread::yield();
    }
    return gLiving == living;
}

/** `prepare` makes all that an attempt needs before its allocations are counted. */
void sweep(const std::string& name, const std::function<Attempt()>& prepare) {
    SCOPED_TRACE(name);
    expectGood(prepare, "the first call");
    for (int number = 1; number < kMost && !testing::Test::HasFailure(); ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        const int64_t before = gLiving;
        bool isUntouched = false;
        {
            const Attempt attempt = prepare();
            isUntouched = callFailing(number, attempt.call);
            EXPECT_NE(attempt.judge(), Outcome::WRONG);
        }
        expectGood(prepare, "the next call");
        EXPECT_TRUE(returnsTo(before)) << gLiving - before << " allocations stayed behind";
        if (isUntouched) {
            return;
        }
    }
    EXPECT_TRUE(testing::Test::HasFailure()) << "no run passed untouched";
}

/** A service in a process of its own. */
class RemoteService {
public:
    RemoteService() { EXPECT_TRUE(mProcess.waitForLine("ready")); }

private:
    ChildProcess mProcess{ChildProcess::ownPath(), {kServiceArgument, ""}};
};

class Callback : public BnDisplayEngineCallback {
public:
    Status onEvent(int32_t /*event*/, int32_t /*value*/) override {
        ++events;
        return Status::ok();
    }
    Status onEventWithData(int32_t /*event*/, const PersistableBundle& data) override {
        bool enable = false;
        events += data.getBoolean(String16("Enable"), &enable) ? 1 : 0;
        return Status::ok();
    }

    std::atomic<int> events{0};
};

// The transactions ---------------------------------------------------------------------------

Outcome outcomeOf(const Status& status) {
    if (status.isOk()) {
        return Outcome::GOOD;
    }
    return status.transactionError() == NO_MEMORY ? Outcome::FAILED : Outcome::WRONG;
}

struct Transaction {
    const char* name;
    Status (*call)(IDisplayEngineService& service, const sp<Callback>& callback,
                   const PersistableBundle& data);
};

const Transaction kTransactions[] = {
    {"getSupported",
     [](auto& service, auto&, auto&) {
         int32_t result = 0;
         return service.getSupported(1, &result);
     }},
    {"setScene",
     [](auto& service, auto&, auto&) {
         int32_t result = 0;
         return service.setScene(1, 2, &result);
     }},
    {"setData",
     [](auto& service, auto&, auto& data) {
         int32_t result = 0;
         return service.setData(1, data, &result);
     }},
    {"getEffectEx",
     [](auto& service, auto&, auto&) {
         std::vector<int32_t> values;
         int32_t result = 0;
         return service.getEffectEx(1, 2, &values, 0, &result);
     }},
    {"getEffect",
     [](auto& service, auto&, auto&) {
         std::vector<uint8_t> bytes;
         int32_t result = 0;
         return service.getEffect(1, 2, &bytes, 0, &result);
     }},
    {"getEffectExByData",
     [](auto& service, auto&, auto& data) {
         std::vector<int32_t> values;
         int32_t result = 0;
         return service.getEffectExByData(1, data, &values, &result);
     }},
    {"setEffect",
     [](auto& service, auto&, auto& data) {
         int32_t result = 0;
         return service.setEffect(1, 2, data, &result);
     }},
    {"registerCallback",
     [](auto& service, auto& callback, auto&) { return service.registerCallback(callback); }},
    {"registerCallbackEx",
     [](auto& service, auto& callback, auto& data) {
         bool isAccepted = false;
         return service.registerCallbackEx(callback, data, &isAccepted);
     }},
    {"unregisterCallback",
     [](auto& service, auto& callback, auto&) { return service.unregisterCallback(callback); }},
    {"unregisterCallbackEx",
     [](auto& service, auto&, auto& data) { return service.unregisterCallbackEx(data); }},
    {"processGraphicBuffer",
     [](auto& service, auto&, auto&) {
         DeGraphicBuffer input;
         DeGraphicBuffer output;
         int32_t result = 0;
         return service.processGraphicBuffer(1, 2, &input, &output, &result);
     }},
};

static_assert(std::size(kTransactions) == com::tivora::displayengine::kServiceCodeCount);

TEST(AllocationSweepTest, ATransactionAnswersNoMemory) {
    const RemoteService remote;
    const sp<IDisplayEngineService> service = getDisplayEngineService();
    ASSERT_NE(service, nullptr);
    const sp<Callback> callback = new Callback;
    PersistableBundle data;
    data.putString(String16("Key"), String16("a key that does not fit into the string itself"));
    for (const Transaction& transaction : kTransactions) {
        const auto status = std::make_shared<Status>();
        sweep(transaction.name, [&] {
            return Attempt{[&] { *status = transaction.call(*service, callback, data); },
                           [&] { return outcomeOf(*status); }};
        });
    }
}

// The facade ---------------------------------------------------------------------------------

struct Method {
    const char* name;
    int (*call)(DisplayEngineManager& manager, const sp<Callback>& callback);
    int failure; /**< Answered when the call fails. */
};

const Method kMethods[] = {
    {"displayengineSetBrightness",
     [](auto& manager, auto&) { return manager.displayengineSetBrightness(7) > 0 ? 1 : 0; }, 0},
    {"getPanelName",
     [](auto& manager, auto&) {
         std::string name;
         const int result = manager.getPanelName(name);
         return result != -1 ? 1 : 0;
     },
     0},
    {"getReadingSupport", [](auto& manager, auto&) { return manager.getReadingSupport(); }, 0},
    {"getGlobalReadingSupport",
     [](auto& manager, auto&) { return manager.getGlobalReadingSupport(); }, 0},
    {"getFoldingCompensationSupported",
     [](auto& manager, auto&) { return manager.getFoldingCompensationSupported(); }, 0},
    {"setScene", [](auto& manager, auto&) { return manager.setScene(1, 2); }, -22},
    {"setFrameRate",
     [](auto& manager, auto&) { return manager.setFrameRate("a long text for a frame rate"); },
     -22},
    {"setCwbForceEnable", [](auto&, auto&) { return static_cast<int>(setCwbForceEnable(1)); }, -22},
    {"getDisplayEngineService",
     [](auto&, auto&) { return getDisplayEngineService() != nullptr ? 1 : 0; }, 0},
    {"checkDisplayEngineService",
     [](auto&, auto&) { return checkDisplayEngineService() != nullptr ? 1 : 0; }, 0},
    // These answer nothing, or the failure value in any case.
    {"getFoldingCompensationAlpha",
     [](auto& manager, auto&) { return manager.getFoldingCompensationAlpha(); }, 1023},
    {"getLocalHBMSupport", [](auto& manager, auto&) { return manager.getLocalHBMSupport(); }, 0},
    {"registerCallback",
     [](auto& manager, auto& callback) {
         manager.registerCallback(callback);
         return 0;
     },
     0},
    {"unregisterCallback",
     [](auto& manager, auto& callback) {
         manager.unregisterCallback(callback);
         return 0;
     },
     0},
};

TEST(AllocationSweepTest, AMethodAnswersItsFailureValue) {
    const RemoteService remote;
    ASSERT_NE(getDisplayEngineService(), nullptr);
    const sp<Callback> callback = new Callback;
    for (const Method& method : kMethods) {
        const int good = method.call(*sp<DisplayEngineManager>(new DisplayEngineManager), callback);
        int answer = 0;
        sweep(method.name, [&] {
            // A manager of its own, since one asks some questions only once.
            const sp<DisplayEngineManager> manager = new DisplayEngineManager;
            return Attempt{[&, manager] { answer = method.call(*manager, callback); },
                           [&] {
                               if (answer == good) {
                                   return Outcome::GOOD;
                               }
                               return answer == method.failure ? Outcome::FAILED : Outcome::WRONG;
                           }};
        });
    }
}

TEST(AllocationSweepTest, StringsComeOutWholeOrEmpty) {
    const std::string text(40, 'x');
    const std::string two = text + "," + text;
    const String16 wide(text.c_str());
    std::vector<std::string> fields;
    sweep("split", [&] {
        fields.clear();
        return Attempt{[&] { DisplayEngineCleanCommon::split(two, ",", fields); },
                       [&] {
                           if (fields.size() == 2) {
                               return Outcome::GOOD;
                           }
                           return fields.empty() ? Outcome::FAILED : Outcome::WRONG;
                       }};
    });
    std::string narrow;
    sweep("string16ToString", [&] {
        return Attempt{[&] { narrow = DisplayEngineCleanCommon::string16ToString(wide); },
                       [&] {
                           if (narrow == text) {
                               return Outcome::GOOD;
                           }
                           return narrow.empty() ? Outcome::FAILED : Outcome::WRONG;
                       }};
    });
}

// The engine ---------------------------------------------------------------------------------

/** The transaction of an "Enable" event, as it arrives. */
void writeEvent(Parcel* event, bool enable) {
    PersistableBundle data;
    data.putBoolean(String16("Enable"), enable);
    EXPECT_EQ(
        event->writeInterfaceToken(com::tivora::displayengine::IDisplayEngineCallback::descriptor),
        OK);
    EXPECT_EQ(event->writeInt32(IDisplayEngineService::DE_EVENT_AISR), OK);
    EXPECT_EQ(event->writeParcelable(data), OK);
}

TEST(AllocationSweepTest, AFrameOrAnEventIsLost) {
    const sp<EngineService> service = EngineService::install();
    service->config.abortMs = EngineService::kPatientMs;
    service->config.monitorMaxFps = 1'000'000;
    processing::use("without_nothing");
    const sp<DisplayEngineManager> manager = new DisplayEngineManager;
    manager->onVideoAppStart();
    const sp<android::IBinder> callback = android::IInterface::asBinder(service->callback());
    ASSERT_NE(callback, nullptr);

    g_delogdEnable = g_delogiEnable = true;  // The texts for messages are allocated as well.
    processing::Frame frame;
    sweep("frame", [&] {
        processing::takeTexts();
        const auto info = std::make_shared<Aisr::BufferInfo>(frame.info(0x1234567812345678));
        return Attempt{
            [&manager, info] { manager->doVideoEnhance(*info); },
            [] { return processing::count("AisrProcess") == 1 ? Outcome::GOOD : Outcome::FAILED; }};
    });

    bool isOn = true;
    android::status_t status = OK;
    sweep("event", [&] {
        isOn = !isOn;
        const auto event = std::make_shared<Parcel>();
        writeEvent(event.get(), isOn);
        return Attempt{[&, event] {
                           Parcel reply;
                           status = callback->transact(2, *event, &reply, 1);
                       },
                       [&] {
                           if (manager->getVideoAppConfig() == isOn) {
                               return Outcome::GOOD;
                           }
                           EXPECT_EQ(status, NO_MEMORY);
                       return Outcome::FAILED;
                       }};
    });
    sweep("size and rate", [&] {
        return Attempt{[&] {
                           manager->setVideoRect(720, 700);
                           manager->setVideoRect(640, 700);
                           manager->setVideoFrameRate(25);
                           manager->setVideoFrameRate(30);
                       },
                       [] { return Outcome::GOOD; }};
    });
}

TEST(AllocationSweepTest, ABringUpEndsWithoutAnEngine) {
    const RemoteService remote;
    for (int number = 1; number < kMost; ++number) {
        ChildProcess client(ChildProcess::ownPath(), {kBringUpArgument, std::to_string(number)});
        const std::string answer = client.readLine().value_or("");
        ASSERT_EQ(client.wait(), 0) << number << ": " << answer;
        if (answer == "untouched: 1 1") {
            return;
        }
        ASSERT_TRUE(answer == "failed: 0 0" || answer == "failed: 1 1") << number << ": " << answer;
    }
    ADD_FAILURE() << "no bring-up passed untouched";
}

/** The first video call with its allocation `number` failing, and the same call again. */
int bringUp(int number) {
    processing::use("without_nothing");
    const sp<DisplayEngineManager> manager = new DisplayEngineManager;
    int isSupported = 0;
    const bool isUntouched =
        callFailing(number, [&] { isSupported = manager->isVideoEngineSupported() ? 1 : 0; });
    std::cout << (isUntouched ? "untouched: " : "failed: ") << isSupported << " "
              << manager->isVideoEngineSupported() << std::endl;
    return testing::Test::HasFailure() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    return testMain(
        argc, argv,
        {{kServiceArgument, [](const std::string&) { return serve(new EngineService); }},
         {kBringUpArgument, [](const std::string& number) { return bringUp(std::stoi(number)); }}});
}
