// The service interface between two processes: every transaction, its bytes, and what goes wrong.
#include <binder/Parcel.h>
#include <binder/PersistableBundle.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "aidl/IDisplayEngineService.h"
#include "support/ProtocolPeer.h"
#include "support/ProtocolPeerObjects.h"
#include "support/ServiceOperations.h"

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::binder::Status;
using android::os::PersistableBundle;
using com::tivora::displayengine::DeGraphicBuffer;
using com::tivora::displayengine::IDisplayEngineCallback;
using com::tivora::displayengine::IDisplayEngineService;
using protocol::callOperation;
using protocol::kOperations;
using protocol::kUntouched;
using protocol::Peer;
using protocol::RecordingCallback;
using protocol::RecordingService;
using protocol::Results;
using protocol::ScriptedBinder;

namespace {

using Strings = std::vector<std::string>;

constexpr uint32_t kFirst = 1;
constexpr uint32_t kLast = protocol::kOperationCount;

class ServiceProtocolTest : public ::testing::Test {
protected:
    ServiceProtocolTest() { android::ProcessState::self()->startThreadPool(); }

    /// The request that the proxy sends for `code`.
    std::string capture(uint32_t code, const sp<IDisplayEngineCallback>& callback = nullptr) {
        Results out;
        EXPECT_FALSE(callOperation(*mProxy, code, &out, callback).isOk());  // an empty reply
        EXPECT_EQ(mScripted->code, code);
        EXPECT_EQ(mScripted->flags & IBinder::FLAG_ONEWAY, 0U);
        return mScripted->request;
    }

    Peer mPeer;
    sp<IDisplayEngineService> mService = IDisplayEngineService::asInterface(mPeer.service);
    sp<ScriptedBinder> mScripted = new ScriptedBinder;
    sp<IDisplayEngineService> mProxy = IDisplayEngineService::asInterface(mScripted);
};

// "com.tivora.displayengine.IDisplayEngineService" behind the platform's header.
const char kToken[] =
    "00000080 ffffffff 54535953 2e000000 "
    "63006f00 6d002e00 74006900 76006f00 72006100 2e006400 69007300 70006c00 61007900 65006e00 "
    "67006900 6e006500 2e004900 44006900 73007000 6c006100 79004500 6e006700 69006e00 65005300 "
    "65007200 76006900 63006500 00000000";

// Present, a bundle of 32 bytes, "BNDL", one entry: "FPS", string, "60".
const char kFrameRate[] =
    " 01000000 20000000 424e444c 01000000 03000000 46005000 53000000 00000000 02000000 36003000 "
    "00000000";

// Two entries: "Key", string, "player"; "Feature", int, 44.
const char kRegistration[] =
    " 01000000 44000000 424e444c 02000000 03000000 4b006500 79000000 00000000 06000000 70006c00 "
    "61007900 65007200 00000000 07000000 46006500 61007400 75007200 65000000 01000000 2c000000";

TEST_F(ServiceProtocolTest, EveryOperationCarriesItsArgumentsAndResults) {
    const sp<RecordingCallback> callback = new RecordingCallback;
    for (const auto& c : kOperations) {
        SCOPED_TRACE(c.call);
        Results out;
        const Status status = callOperation(*mService, c.code, &out, callback);
        EXPECT_TRUE(status.isOk()) << status.toString8().string();
        EXPECT_EQ(Peer::takeCalls(mPeer.service, 1), Strings{c.call});
        EXPECT_EQ(out.text(), c.results);
    }
    EXPECT_EQ(callback->take(2), (Strings{"onEvent 11 -12", "onEventWithData 3 { Enable=true }"}));
}

TEST_F(ServiceProtocolTest, RequestsAndRepliesHaveTheirLayout) {
    const std::string frameRateBytes = kFrameRate;
    const std::string registrationBytes = kRegistration;
    struct {
        uint32_t code;
        std::string request;  // after the token
        const char* reply;
    } const cases[] = {
        {1, " 2c000000", "00000000 e9030000"},
        {2, " 14000000 9cffffff", "00000000 ea030000"},
        {3, " 0f000000" + frameRateBytes, "00000000 eb030000"},
        {4, " 19000000 10000000 03000000 01000000 02000000 03000000 07000000",
         "00000000 ec030000 04000000 03000000 02000000 01000000 4d000000"},
        // five bytes fill up eight
        {5, " 21000000 0e000000 05000000 04050607 08000000 09000000",
         "00000000 ed030000 06000000 08070605 044d0000"},
        {6, " 2c000000" + registrationBytes + " 03000000 01000000 02000000 03000000",
         "00000000 ee030000 04000000 03000000 02000000 01000000 4d000000"},
        {7, " 19000000 10000000" + frameRateBytes, "00000000 ef030000"},
        {11, registrationBytes, "00000000"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        const std::string request = kToken + c.request;
        EXPECT_EQ(capture(c.code), request);
        Parcel reply;
        EXPECT_EQ(protocol::send(mPeer.service, c.code, request, &reply), OK);
        EXPECT_EQ(protocol::hex(reply), c.reply);
    }
    // Two parcelables, present, without a buffer. (The service fills the output.)
    EXPECT_EQ(capture(12),
              std::string(kToken) + " 01000000 02000000 01000000 00000000 01000000 00000000");
    // A null callback: no binder and no stability. The registration's data come behind it.
    const std::string callback =
        std::string(kToken) + " 852a6273 7f010000 00000000 00000000 00000000 00000000 00000000";
    EXPECT_EQ(capture(8), callback);
    EXPECT_EQ(capture(9), callback + registrationBytes);
    EXPECT_EQ(capture(10), callback);
}

TEST_F(ServiceProtocolTest, ExceptionsTravel) {
    // code, "no", no remote trace, and the service's own code where there is one
    struct {
        int32_t exception;
        int32_t code;
        std::string reply;
    } const cases[] = {
        {Status::EX_SECURITY, 0, "ffffffff 02000000 6e006f00 00000000 00000000"},
        {Status::EX_UNSUPPORTED_OPERATION, 0, "f9ffffff 02000000 6e006f00 00000000 00000000"},
        {Status::EX_SERVICE_SPECIFIC, 77, "f8ffffff 02000000 6e006f00 00000000 00000000 4d000000"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.exception);
        protocol::raise(mPeer.service, c.exception, "no", c.code);
        Results out;
        const Status status = callOperation(*mService, 1, &out);
        EXPECT_EQ(status.exceptionCode(), c.exception);
        EXPECT_STREQ(status.exceptionMessage().string(), "no");
        EXPECT_EQ(status.serviceSpecificErrorCode(), c.code);
        protocol::raise(mPeer.service, c.exception, "no", c.code);
        Parcel reply;
        EXPECT_EQ(protocol::send(mPeer.service, 1, std::string(kToken) + " 2c000000", &reply), OK);
        EXPECT_EQ(protocol::hex(reply), c.reply);
    }
}

TEST_F(ServiceProtocolTest, AMalformedRequestReachesNothingAndWritesNothing) {
    const sp<RecordingCallback> callback = new RecordingCallback;
    const size_t tokenSize = protocol::unhex(kToken).size();
    const sp<RecordingService> local = new RecordingService;
    // What has been written beside an error shows only in this process.
    const auto refusal = [&](uint32_t code, const std::string& bytes) {
        Parcel reply;
        const status_t status = protocol::send(mPeer.service, code, bytes, &reply);
        EXPECT_EQ(protocol::send(local, code, bytes, &reply), status);
        EXPECT_EQ(reply.dataSize(), 0U);
        return status;
    };
    for (uint32_t code = kFirst; code <= kLast; ++code) {
        const std::vector<uint8_t> whole = protocol::unhex(capture(code, callback));
        // The content of a graphic buffer reads as absent when it is not there, so the last request
        // is whole as soon as the mark of its second one is.
        const size_t needed = code == kLast ? whole.size() - 4 : whole.size();
        for (size_t size = 0; size < needed; size += 4) {
            SCOPED_TRACE(testing::Message() << "code " << code << " cut to " << size);
            const status_t status = refusal(code, protocol::hex(whole.data(), size));
            EXPECT_NE(status, OK);
            if (size < tokenSize) {
                EXPECT_EQ(status, android::BAD_TYPE);
            }
        }
    }
    struct {
        const char* what;
        uint32_t code;
        std::string bytes;
        status_t status;
    } const cases[] = {
        {"another header", 1, std::string(kToken).replace(18, 8, "54535954") + " 2c000000",
         android::BAD_TYPE},
        {"another interface", 1, std::string(kToken).replace(36, 2, "64") + " 2c000000",
         android::BAD_TYPE},
        {"an impossible count", 4, std::string(kToken) + " 19000000 10000000 fdffffff 07000000",
         android::BAD_VALUE},
        {"more values than bytes", 4, std::string(kToken) + " 19000000 10000000 ffffff7f 07000000",
         android::NOT_ENOUGH_DATA},
        {"a bundle of another kind", 11,
         std::string(kToken) + " 01000000 04000000 424e444d 00000000", android::BAD_VALUE},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(refusal(c.code, c.bytes), c.status);
    }
    int32_t result = 0;
    EXPECT_TRUE(mService->getSupported(1, &result).isOk());
    EXPECT_EQ(Peer::takeCalls(mPeer.service, 1), Strings{"getSupported 1"});
}

TEST_F(ServiceProtocolTest, ANullWhereAValueIsRequiredIsANullPointerException) {
    for (const uint32_t code : {8U, 9U, 10U}) {
        Results out;
        const Status status = callOperation(*mService, code, &out, nullptr);
        EXPECT_EQ(status.exceptionCode(), Status::EX_NULL_POINTER) << code;
        EXPECT_FALSE(out.accepted);
    }
    const char* const requests[] = {
        " 19000000 10000000 ffffffff 07000000",  // code 4: no vector
        " 21000000 0e000000 ffffffff 09000000",  // code 5: no vector
        " 2c000000 00000000 00000000",           // code 6: no bundle
    };
    for (uint32_t i = 0; i < 3; ++i) {
        Parcel reply;
        EXPECT_EQ(protocol::send(mPeer.service, 4 + i, kToken + std::string(requests[i]), &reply),
                  OK);
        EXPECT_EQ(protocol::hex(reply), "fcffffff 00000000 00000000 00000000");
    }
    int32_t result = 0;
    EXPECT_TRUE(mService->getSupported(1, &result).isOk());
    EXPECT_EQ(Peer::takeCalls(mPeer.service, 1), Strings{"getSupported 1"});
}

TEST_F(ServiceProtocolTest, AShortReplyIsTakenAsFarAsItGoes) {
    struct {
        const char* what;
        uint32_t code;
        const char* reply;
        status_t error;
        const char* results;
    } const cases[] = {
        {"nothing", 1, "", android::NOT_ENOUGH_DATA, kUntouched},
        {"no result", 1, "00000000", android::NOT_ENOUGH_DATA, kUntouched},
        {"no answer", 9, "00000000", android::NOT_ENOUGH_DATA, kUntouched},
        {"no vector", 4, "00000000 09000000", android::NOT_ENOUGH_DATA,
         "9 no 1,2,3 4,5,6,7,8 none"},
        {"half a vector", 6, "00000000 09000000 02000000 01000000", android::NOT_ENOUGH_DATA,
         "9 no 1,2,3 4,5,6,7,8 none"},
        {"a null vector", 6, "00000000 09000000 ffffffff", android::UNEXPECTED_NULL,
         "9 no 1,2,3 4,5,6,7,8 none"},
        {"an empty vector", 6, "00000000 09000000 00000000", OK, "9 no - 4,5,6,7,8 none"},
        {"no bytes", 5, "00000000 09000000", android::NOT_ENOUGH_DATA, "9 no 1,2,3 4,5,6,7,8 none"},
        {"fewer bytes", 5, "00000000 09000000 01000000 21000000", OK, "9 no 1,2,3 33 none"},
        {"no input", 12, "00000000 09000000", android::NOT_ENOUGH_DATA,
         "9 no 1,2,3 4,5,6,7,8 none"},
        {"a null output", 12, "00000000 09000000 01000000 00000000 00000000",
         android::UNEXPECTED_NULL, "9 no 1,2,3 4,5,6,7,8 none"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        mScripted->reply = c.reply;
        Results out;
        const Status status = callOperation(*mProxy, c.code, &out, new RecordingCallback);
        EXPECT_EQ(status.transactionError(), c.error) << status.toString8().string();
        EXPECT_EQ(status.isOk(), c.error == OK);
        EXPECT_EQ(out.text(), c.results);
    }
}

TEST_F(ServiceProtocolTest, AnOlderServiceIsAnsweredForByTheDefaultImplementation) {
    const sp<RecordingCallback> callback = new RecordingCallback;
    const auto expectError = [&](status_t error) {
        mScripted->returned = error;
        mScripted->reply = "00000000 01000000";
        for (const auto& c : kOperations) {
            Results out;
            const Status status = callOperation(*mProxy, c.code, &out, callback);
            EXPECT_EQ(status.transactionError(), error) << c.call;
            EXPECT_EQ(out.text(), kUntouched);
        }
    };
    expectError(android::UNKNOWN_TRANSACTION);

    EXPECT_FALSE(IDisplayEngineService::setDefaultImpl(nullptr));
    EXPECT_EQ(IDisplayEngineService::getDefaultImpl(), nullptr);
    auto fallback = std::make_unique<RecordingService>();
    RecordingService& recorder = *fallback;
    EXPECT_TRUE(IDisplayEngineService::setDefaultImpl(std::move(fallback)));
    EXPECT_FALSE(IDisplayEngineService::setDefaultImpl(nullptr));
    EXPECT_EQ(IDisplayEngineService::getDefaultImpl().get(), &recorder);
    for (const auto& c : kOperations) {
        Results out;
        EXPECT_TRUE(callOperation(*mProxy, c.code, &out, callback).isOk()) << c.call;
        EXPECT_EQ(recorder.journal.take(1), Strings{c.call});
        EXPECT_EQ(out.text(), c.results);
    }
    expectError(android::INVALID_OPERATION);
}

TEST_F(ServiceProtocolTest, OtherCodesAndTheInterfaceItselfGoToThePlatform) {
    for (const uint32_t code : {0U, 13U, 14U, 0x00ffffffU}) {
        Parcel reply;
        EXPECT_EQ(protocol::send(mPeer.service, code, std::string(kToken) + " 2c000000", &reply),
                  android::UNKNOWN_TRANSACTION);
    }
    EXPECT_EQ(mPeer.service->pingBinder(), OK);
    EXPECT_EQ(mPeer.service->getInterfaceDescriptor(), IDisplayEngineService::descriptor);
    EXPECT_EQ(mPeer.service->queryLocalInterface(IDisplayEngineService::descriptor), nullptr);
    // An object of the same process is its own interface.
    EXPECT_EQ(IDisplayEngineService::asInterface(nullptr), nullptr);
    const sp<RecordingService> local = new RecordingService;
    EXPECT_EQ(IDisplayEngineService::asInterface(local).get(), local.get());
}

}  // namespace

int main(int argc, char** argv) {
    return protocol::testMain(argc, argv);
}
