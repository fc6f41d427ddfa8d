// SPDX-License-Identifier: Apache-2.0
// The two interfaces: every transaction, its bytes, and what becomes of an answer that is none.
// Bytes that nobody of ours sends are the fuzzers' subject.
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "aidl/IDisplayEngineService.h"
#include "support/Recording.h"
#include "support/ServiceOperations.h"

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
const std::string kToken =
    "00000080 ffffffff 54535953 2e000000 "
    "63006f00 6d002e00 74006900 76006f00 72006100 2e006400 69007300 70006c00 61007900 65006e00 "
    "67006900 6e006500 2e004900 44006900 73007000 6c006100 79004500 6e006700 69006e00 65005300 "
    "65007200 76006900 63006500 00000000";

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

TEST_F(ServiceProtocolTest, ExceptionsHaveTheirLayoutAndLeaveTheResultsAlone) {
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
}

TEST_F(ServiceProtocolTest, ABrokenReplyOrRequestIsAnError) {
    tap->change = [](Parcel* reply) { reply->writeInt32(0); };
    EXPECT_EQ(callAndFail().transactionError(), android::NOT_ENOUGH_DATA);
    Parcel request;
    Parcel reply;
    EXPECT_EQ(service->transact(1, request, &reply), android::BAD_TYPE) << "no token";
    request.writeInterfaceToken(IDisplayEngineService::descriptor);
    EXPECT_EQ(service->transact(1, request, &reply), android::NOT_ENOUGH_DATA);
    EXPECT_EQ(service->journal.count("getSupported"), 1U) << "the proxy's call alone";
}

TEST_F(ServiceProtocolTest, TheDefaultIsAskedForUnknownTransactionsOnly) {
    EXPECT_EQ(IDisplayEngineService::asInterface(nullptr), nullptr);
    EXPECT_EQ(IDisplayEngineService::asInterface(service).get(), service.get());

    EXPECT_FALSE(IDisplayEngineService::setDefaultImpl(nullptr));
    EXPECT_EQ(IDisplayEngineService::getDefaultImpl(), nullptr);
    const status_t errors[] = {android::UNKNOWN_TRANSACTION, android::DEAD_OBJECT,
                               android::FAILED_TRANSACTION, android::BAD_TYPE};
    for (const status_t error : errors) {
        tap->returned = error;
        EXPECT_EQ(callAndFail().transactionError(), error) << "without a default";
    }
    EXPECT_TRUE(IDisplayEngineService::setDefaultImpl(std::make_unique<RecordingService>()));
    EXPECT_FALSE(IDisplayEngineService::setDefaultImpl(nullptr));
    for (const status_t error : errors) {
        tap->returned = error;
        if (error != android::UNKNOWN_TRANSACTION) {
            EXPECT_EQ(callAndFail().transactionError(), error);
        }
    }
    tap->returned = android::UNKNOWN_TRANSACTION;
    Results out;
    EXPECT_TRUE(kOperations[0].run(*proxy, &out, nullptr).isOk());
    EXPECT_EQ(out.text(), kOperations[0].results);
}

// "com.tivora.displayengine.IDisplayEngineCallback" behind the platform's header.
const std::string kCallbackToken =
    "00000080 ffffffff 54535953 2f000000 "
    "63006f00 6d002e00 74006900 76006f00 72006100 2e006400 69007300 70006c00 61007900 65006e00 "
    "67006900 6e006500 2e004900 44006900 73007000 6c006100 79004500 6e006700 69006e00 65004300 "
    "61006c00 6c006200 61006300 6b000000";

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

}  // namespace
