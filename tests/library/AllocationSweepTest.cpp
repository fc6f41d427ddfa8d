// SPDX-License-Identifier: Apache-2.0
// Memory runs out once, at the first, second, third ... allocation of an operation, until a run
// passes untouched: each time the operation answers its failure value or does without, no exception
// comes out, nothing stays behind, and the next call works.
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <new>
#include <string>
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

/** Runs `call` with its allocation `number` failing; `isUntouched` tells that it made fewer. */
Outcome runFailing(int number, const std::function<Outcome()>& call, bool* isUntouched) {
    Outcome outcome = Outcome::WRONG;
    gLeft = number;
    try {
        outcome = call();
    } catch (...) {
        ADD_FAILURE() << "an exception came out";
    }
    *isUntouched = gLeft.exchange(0) > 0;
    return outcome;
}

/** An operation, with all that it needs made before the allocations are counted. */
using Prepare = std::function<std::function<Outcome()>()>;

void sweep(const std::string& name, const Prepare& prepare) {
    SCOPED_TRACE(name);
    EXPECT_EQ(prepare()(), Outcome::GOOD);
    for (int number = 1; number < kMost && !testing::Test::HasFailure(); ++number) {
        SCOPED_TRACE("allocation " + std::to_string(number));
        const int64_t before = gLiving;
        bool isUntouched = false;
        EXPECT_NE(runFailing(number, prepare(), &isUntouched), Outcome::WRONG);
        EXPECT_EQ(prepare()(), Outcome::GOOD) << "the next call";
        EXPECT_EQ(gLiving, before) << "something stayed behind";
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
        sweep(transaction.name, [&] {
            return [&] { return outcomeOf(transaction.call(*service, callback, data)); };
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
        sweep(method.name, [&] {
            // A manager of its own, since one asks some questions only once.
            const sp<DisplayEngineManager> manager = new DisplayEngineManager;
            return [&method, &callback, good, manager] {
                const int answer = method.call(*manager, callback);
                return answer == good             ? Outcome::GOOD
                       : answer == method.failure ? Outcome::FAILED
                                                  : Outcome::WRONG;
            };
        });
    }
}

TEST(AllocationSweepTest, StringsComeOutWholeOrEmpty) {
    const std::string text(40, 'x');
    const String16 wide(text.c_str());
    sweep("split", [&] {
        return [&] {
            std::vector<std::string> fields;
            DisplayEngineCleanCommon::split(text + "," + text, ",", fields);
            return fields.size() == 2 ? Outcome::GOOD : Outcome::FAILED;
        };
    });
    sweep("string16ToString", [&] {
        return [&] {
            return DisplayEngineCleanCommon::string16ToString(wide) == text ? Outcome::GOOD
                                                                            : Outcome::FAILED;
        };
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
    processing::use("without_nothing");
    const sp<DisplayEngineManager> manager = new DisplayEngineManager;
    manager->onVideoAppStart();
    const sp<android::IBinder> callback = android::IInterface::asBinder(service->callback());
    ASSERT_NE(callback, nullptr);

    g_delogdEnable = g_delogiEnable = true;  // The texts for messages are allocated as well.
    processing::Frame frame;
    sweep("frame", [&] {
        return [&] {
            Aisr::BufferInfo info = frame.info(1);
            info.id = 0x1234567812345678;
            const size_t before = processing::count("AisrProcess");
            manager->doVideoEnhance(info);
            return processing::count("AisrProcess") > before ? Outcome::GOOD : Outcome::FAILED;
        };
    });

    bool isOn = true;
    sweep("event", [&] {
        isOn = !isOn;
        const auto event = std::make_shared<Parcel>();
        writeEvent(event.get(), isOn);
        return [&manager, &callback, event, isOn] {
            event->setDataPosition(0);
            Parcel reply;
            const android::status_t status = callback->transact(2, *event, &reply, 1);
            return manager->getVideoAppConfig() == isOn  ? Outcome::GOOD
                   : status == OK || status == NO_MEMORY ? Outcome::FAILED
                                                         : Outcome::WRONG;
        };
    });
    sweep("size and rate", [&] {
        return [&] {
            manager->setVideoRect(720, 700);
            manager->setVideoRect(640, 700);
            manager->setVideoFrameRate(25);
            manager->setVideoFrameRate(30);
            return Outcome::GOOD;
        };
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
    bool isUntouched = false;
    runFailing(
        number,
        [&] {
            isSupported = manager->isVideoEngineSupported() ? 1 : 0;
            return Outcome::GOOD;
        },
        &isUntouched);
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
