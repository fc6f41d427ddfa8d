// SPDX-License-Identifier: Apache-2.0
// The two interfaces: every transaction, its bytes, and what becomes of an answer that is none; and
// the places of virtual operations, which code built apart from the library relies on.
// Bytes that nobody of ours sends are the fuzzers' subject.
#include <binder/Parcel.h>
#include <cxxabi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "aidl/IDisplayEngineService.h"
#include "support/Recording.h"
#include "support/ServiceOperations.h"

using android::GraphicBuffer;
using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::binder::Status;
using namespace protocol;
using Texts = std::vector<std::string>;

namespace {

/** Stands before a binder and keeps the last transaction; it can take the binder's place. */
class Tap : public android::BBinder {
public:
    explicit Tap(const sp<IBinder>& binder) : mBinder(binder) {}

    uint32_t code = 0;
    uint32_t flags = 0;
    std::string request;
    std::string reply;
    status_t returned = OK;              /**< unless OK, the binder is not asked */
    std::function<void(Parcel*)> change; /**< of the reply */

protected:
    status_t onTransact(uint32_t transactionCode, const Parcel& data, Parcel* out,
                        uint32_t transactionFlags) override {
        code = transactionCode;
        flags = transactionFlags;
        request = hex(data);
        const status_t status =
            returned != OK ? returned : mBinder->transact(code, data, out, flags);
        if (change) {
            out->freeData();
            change(out);
        }
        reply = hex(*out);
        return status;
    }

private:
    const sp<IBinder> mBinder;
};

class ServiceProtocolTest : public ::testing::Test {
protected:
    /** What operation 1 answers, and that it leaves the results alone. */
    Status callAndFail() {
        Results out;
        const Status status = kOperations[0].run(*proxy, &out, nullptr);
        EXPECT_EQ(out.text(), kUntouched);
        return status;
    }

    const sp<RecordingService> service = new RecordingService;
    const sp<Tap> tap = new Tap(service);
    const sp<IDisplayEngineService> proxy = IDisplayEngineService::asInterface(tap);
};

// "com.tivora.displayengine.IDisplayEngineService" behind the platform's header.
const std::string kHeader = "00000080 ffffffff 54535953 ";
const std::string kBothNames =
    "63006f00 6d002e00 74006900 76006f00 72006100 2e006400 69007300 70006c00 61007900 65006e00 "
    "67006900 6e006500 2e004900 44006900 73007000 6c006100 79004500 6e006700 69006e00 6500";
const std::string kToken =
    kHeader + "2e000000 " + kBothNames + "5300 65007200 76006900 63006500 00000000";
// "com.tivora.displayengine.IDisplayEngineCallback".
const std::string kCallbackToken =
    kHeader + "2f000000 " + kBothNames + "4300 61006c00 6c006200 61006300 6b000000";

TEST_F(ServiceProtocolTest, RequestsAndRepliesHaveTheirLayout) {
    const sp<RecordingCallback> callback = new RecordingCallback;
    uint32_t code = 0;
    for (const Operation& operation : kOperations) {
        SCOPED_TRACE(operation.call);
        Results out;
        const Status status = operation.run(*proxy, &out, nullptr);
        EXPECT_EQ(tap->code, ++code);
        EXPECT_EQ(tap->flags & IBinder::FLAG_ONEWAY, 0U);
        EXPECT_EQ(tap->request, kToken + operation.request);
        if (!operation.reply.empty()) {
            EXPECT_EQ(tap->reply, operation.reply);
        }
        if (!status.isOk()) {
            EXPECT_EQ(status.exceptionCode(), Status::EX_NULL_POINTER);
            EXPECT_EQ(out.text(), kUntouched);
            EXPECT_EQ(service->journal.take(), Texts{}) << "a null callback reaches no operation";
            EXPECT_TRUE(operation.run(*proxy, &out, callback).isOk());
        }
        EXPECT_EQ(out.text(), operation.results);
        EXPECT_EQ(service->journal.take(), Texts{operation.call});
    }
    Parcel request;
    Parcel reply;
    EXPECT_EQ(service->transact(kServiceCodeCount + 1, request, &reply),
              android::UNKNOWN_TRANSACTION)
        << "an operation of the service is missing in the list";
}

TEST_F(ServiceProtocolTest, ExceptionsAndBrokenMessagesLeaveTheResultsAlone) {
    // exception, "no", no remote trace, and the service's own code where there is one
    const struct {
        Status outcome;
        std::string reply;
    } cases[] = {
        {Status::fromExceptionCode(Status::EX_SECURITY, "no"),
         "ffffffff 02000000 6e006f00 00000000 00000000"},
        {Status::fromExceptionCode(Status::EX_UNSUPPORTED_OPERATION, "no"),
         "f9ffffff 02000000 6e006f00 00000000 00000000"},
        {Status::fromServiceSpecificError(77, "no"),
         "f8ffffff 02000000 6e006f00 00000000 00000000 4d000000"},
    };
    for (const auto& expected : cases) {
        service->outcomes = {{"getSupported", expected.outcome}};
        const Status received = callAndFail();
        EXPECT_EQ(received.exceptionCode(), expected.outcome.exceptionCode());
        EXPECT_EQ(received.serviceSpecificErrorCode(), expected.outcome.serviceSpecificErrorCode());
        EXPECT_STREQ(received.exceptionMessage().string(), "no");
        EXPECT_EQ(tap->reply, expected.reply);
    }

    // Nor is a reply or a request used that ends too early.
    service->outcomes.clear();
    tap->change = [](Parcel* reply) { reply->writeInt32(0); };
    EXPECT_EQ(callAndFail().transactionError(), android::NOT_ENOUGH_DATA);
    Parcel request;
    Parcel reply;
    EXPECT_EQ(service->transact(1, request, &reply), android::BAD_TYPE) << "no token";
    request.writeInterfaceToken(IDisplayEngineService::descriptor);
    EXPECT_EQ(service->transact(1, request, &reply), android::NOT_ENOUGH_DATA);
    EXPECT_EQ(service->journal.take().size(), std::size(cases) + 1) << "the proxy's calls alone";
}

TEST_F(ServiceProtocolTest, TheDefaultIsAskedForUnknownTransactionsOnly) {
    EXPECT_EQ(IDisplayEngineService::asInterface(nullptr), nullptr);
    EXPECT_EQ(IDisplayEngineService::asInterface(service).get(), service.get());

    EXPECT_FALSE(IDisplayEngineService::setDefaultImpl(nullptr));
    EXPECT_EQ(IDisplayEngineService::getDefaultImpl(), nullptr);
    for (const bool hasDefault : {false, true}) {
        if (hasDefault) {
            EXPECT_TRUE(
                IDisplayEngineService::setDefaultImpl(std::make_unique<RecordingService>()));
            EXPECT_FALSE(IDisplayEngineService::setDefaultImpl(nullptr));
        }
        for (const status_t error : {android::DEAD_OBJECT, android::FAILED_TRANSACTION,
                                     android::BAD_TYPE, android::UNKNOWN_TRANSACTION}) {
            const bool isAsked = hasDefault && error == android::UNKNOWN_TRANSACTION;
            tap->returned = error;
            Results out;
            const Status status = kOperations[0].run(*proxy, &out, nullptr);
            EXPECT_EQ(status.transactionError(), isAsked ? OK : error);
            EXPECT_EQ(out.text(), isAsked ? kOperations[0].results : kUntouched);
        }
    }
}

TEST_F(ServiceProtocolTest, EventsHaveTheirLayoutAndAskForNoReply) {
    const sp<RecordingCallback> callback = new RecordingCallback;
    const sp<Tap> line = new Tap(callback);
    const sp<IDisplayEngineCallback> sender = IDisplayEngineCallback::asInterface(line);
    EXPECT_TRUE(sender->onEvent(3, -1).isOk());
    EXPECT_EQ(line->code, 1U);
    EXPECT_NE(line->flags & IBinder::FLAG_ONEWAY, 0U);
    EXPECT_EQ(line->request, kCallbackToken + " 03000000 ffffffff");

    EXPECT_TRUE(sender->onEventWithData(3, enable(true)).isOk());
    EXPECT_EQ(line->code, 2U);
    EXPECT_NE(line->flags & IBinder::FLAG_ONEWAY, 0U);
    // event; present, a bundle of 32 bytes, "BNDL", one entry: "Enable", boolean, 1
    EXPECT_EQ(line->request, kCallbackToken +
                                 " 03000000 01000000 20000000 424e444c 01000000 06000000 45006e00 "
                                 "61006200 6c006500 00000000 09000000 01000000");
    EXPECT_EQ(callback->take(2), (Texts{"onEvent 3 -1", "onEventWithData 3 Enable=true"}));

    line->returned = android::UNKNOWN_TRANSACTION;
    EXPECT_EQ(sender->onEvent(3, -1).transactionError(), android::UNKNOWN_TRANSACTION);
    EXPECT_TRUE(IDisplayEngineCallback::setDefaultImpl(std::make_unique<RecordingCallback>()));
    EXPECT_EQ(sender->onEvent(3, -1).exceptionCode(), Status::EX_ILLEGAL_STATE);
}

sp<GraphicBuffer> newBuffer(uint32_t width) {
    return new GraphicBuffer(width, 2, android::PIXEL_FORMAT_RGBA_8888, 1,
                             GraphicBuffer::USAGE_SW_WRITE_OFTEN);
}

std::string written(const DeGraphicBuffer& object) {
    Parcel parcel;
    object.writeToParcel(&parcel);
    return hex(parcel);
}

TEST_F(ServiceProtocolTest, AGraphicBufferIsReadIntoTheOneHeldWhichStaysWhenNoneComes) {
    Parcel parcel;
    parcel.writeBool(false);
    for (const int32_t value : {1, 1, 2, 3, 4}) {
        parcel.writeInt32(value);  // present, and its four integers
    }
    parcel.write(*newBuffer(6));
    const sp<GraphicBuffer> held = newBuffer(5);
    DeGraphicBuffer object(held);
    parcel.setDataPosition(0);
    EXPECT_EQ(object.readFromParcel(&parcel), OK);
    EXPECT_EQ(object.getGraphicBuffer(), held) << "none came";
    EXPECT_EQ(held->getWidth(), 5U);
    EXPECT_EQ(object.readFromParcel(&parcel), OK);
    EXPECT_EQ(object.getGraphicBuffer(), held);
    EXPECT_EQ(held->getWidth(), 6U);
    EXPECT_EQ(written(object).rfind("01000000 01000000 02000000 03000000 04000000 ", 0), 0U);
    object.setGraphicBuffer(nullptr);
    EXPECT_EQ(written(object), "00000000");
}

/** An operation that is not among the library's exported ones, so that its slot has no name. */
const char* const kUnnamed = "";

/** The exported operation at `address`: "setScene", or kUnnamed. */
std::string operationAt(const void* address) {
    Dl_info symbol{};
    if (dladdr(address, &symbol) == 0 || symbol.dli_saddr != address) {
        return kUnnamed;
    }
    // "...::IDisplayEngineService::getSupported(int, int*)"
    char* const demangled = abi::__cxa_demangle(symbol.dli_sname, nullptr, nullptr, nullptr);
    const std::string text = demangled == nullptr ? symbol.dli_sname : demangled;
    std::free(demangled);
    const std::string qualified = text.substr(0, text.find('('));
    return qualified.substr(qualified.rfind(':') + 1);
}

/** The operations in the first slots of the table of the class that has this decorated name. */
Texts slotsOf(const std::string& className, size_t count) {
    const auto* table = static_cast<void**>(dlsym(RTLD_DEFAULT, ("_ZTV" + className).c_str()));
    const void* type = dlsym(RTLD_DEFAULT, ("_ZTI" + className).c_str());
    if (table == nullptr || type == nullptr) {
        return {className + " is not exported"};
    }
    // The slots follow the type information; in front of it stand the offsets of virtual bases.
    while (*table != type) {
        ++table;
    }
    Texts slots(count);
    std::transform(table + 1, table + 1 + count, slots.begin(), operationAt);
    return slots;
}

// The interfaces are abstract, so their order is read off classes that implement the operations.
// A destructor takes two slots. kUnnamed: onAsBinder and other members of the platform's bases.
TEST_F(ServiceProtocolTest, VirtualOperationsHaveTheirSlots) {
    Texts serviceTable = {"~BpDisplayEngineService", "~BpDisplayEngineService", kUnnamed,
                          "getInterfaceDescriptor"};
    for (const Operation& operation : kOperations) {
        serviceTable.push_back(operation.call.substr(0, operation.call.find(' ')));
    }
    const std::pair<std::string, Texts> tables[] = {
        {"N3com6tivora13displayengine22BpDisplayEngineServiceE", serviceTable},
        {"N3com6tivora13displayengine23BpDisplayEngineCallbackE",
         {"~BpDisplayEngineCallback", "~BpDisplayEngineCallback", kUnnamed,
          "getInterfaceDescriptor", "onEvent", "onEventWithData"}},
        {"N10AisrEngine14ClientCallbackE",
         {"~ClientCallback", "~ClientCallback", kUnnamed, kUnnamed, "onEvent", "onEventWithData",
          kUnnamed, "onTransact"}},
        {"N3com6tivora13displayengine15DeGraphicBufferE",
         {"~DeGraphicBuffer", "~DeGraphicBuffer", "writeToParcel", "readFromParcel", kUnnamed}},
    };
    for (const auto& [className, slots] : tables) {
        EXPECT_EQ(slotsOf(className, slots.size()), slots) << className;
    }
}

}  // namespace
