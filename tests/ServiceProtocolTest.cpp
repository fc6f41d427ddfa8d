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
using protocol::Peer;
using protocol::RecordingCallback;
using protocol::RecordingService;
using protocol::ScriptedBinder;

namespace {

using Strings = std::vector<std::string>;

/// The results of one operation, set beforehand to values that no service answers.
struct Results {
    int32_t result = -5;
    bool accepted = false;
    std::vector<int32_t> values = {1, 2, 3};
    std::vector<uint8_t> bytes = {4, 5, 6, 7, 8};
    DeGraphicBuffer input;
    DeGraphicBuffer output;

    /// Result, acceptance, values and bytes: "-5 no 1,2,3 4,5,6,7,8" when nothing was set.
    std::string text() const {
        return std::to_string(result) + (accepted ? " yes" : " no") + list(values) + list(bytes);
    }

private:
    template <typename T>
    static std::string list(const std::vector<T>& elements) {
        std::string joined;
        for (const T element : elements) {
            joined += (joined.empty() ? " " : ",") + std::to_string(element);
        }
        return joined.empty() ? " -" : joined;
    }
};

const char kUntouched[] = "-5 no 1,2,3 4,5,6,7,8";

PersistableBundle registration() {
    PersistableBundle data;
    data.putString(String16("Key"), String16("player"));
    data.putInt(String16("Feature"), 44);
    return data;
}

PersistableBundle frameRate() {
    PersistableBundle data;
    data.putString(String16("FPS"), String16("60"));
    return data;
}

/// Calls the operation of `code` with arguments that differ from each other.
Status callOperation(IDisplayEngineService& service, uint32_t code, Results* out,
                     const sp<IDisplayEngineCallback>& callback = nullptr) {
    switch (code) {
        case 1:
            return service.getSupported(44, &out->result);
        case 2:
            return service.setScene(20, -100, &out->result);
        case 3:
            return service.setData(15, frameRate(), &out->result);
        case 4:
            return service.getEffectEx(25, 16, &out->values, 7, &out->result);
        case 5:
            return service.getEffect(33, 14, &out->bytes, 9, &out->result);
        case 6:
            return service.getEffectExByData(44, registration(), &out->values, &out->result);
        case 7:
            return service.setEffect(25, 16, frameRate(), &out->result);
        case 8:
            return service.registerCallback(callback);
        case 9:
            return service.registerCallbackEx(callback, registration(), &out->accepted);
        case 10:
            return service.unregisterCallback(callback);
        case 11:
            return service.unregisterCallbackEx(registration());
        default:
            return service.processGraphicBuffer(1, 2, &out->input, &out->output, &out->result);
    }
}

constexpr uint32_t kFirst = 1;
constexpr uint32_t kLast = 12;

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

/// The operations as the recording side sees them, and what its answers do to the results.
struct {
    uint32_t code;
    const char* call;
    const char* results;
} const kOperations[] = {
    {1, "getSupported 44", "1001 no 1,2,3 4,5,6,7,8"},
    {2, "setScene 20 -100", "1002 no 1,2,3 4,5,6,7,8"},
    {3, "setData 15 FPS=60", "1003 no 1,2,3 4,5,6,7,8"},
    {4, "getEffectEx 25 16 [ 1 2 3 ] 7", "1004 no 3,2,1,77 4,5,6,7,8"},
    {5, "getEffect 33 14 [ 4 5 6 7 8 ] 9", "1005 no 1,2,3 8,7,6,5,4,77"},
    {6, "getEffectExByData 44 Key=player Feature=44 [ 1 2 3 ]", "1006 no 3,2,1,77 4,5,6,7,8"},
    {7, "setEffect 25 16 FPS=60", "1007 no 1,2,3 4,5,6,7,8"},
    {8, "registerCallback told", kUntouched},
    {9, "registerCallbackEx Key=player Feature=44", "-5 yes 1,2,3 4,5,6,7,8"},
    {10, "unregisterCallback", kUntouched},
    {11, "unregisterCallbackEx Key=player Feature=44", kUntouched},
    {12, "processGraphicBuffer 1 2 none none", "1012 no 1,2,3 4,5,6,7,8"},
};

TEST_F(ServiceProtocolTest, EveryOperationCarriesItsArgumentsAndResults) {
    const sp<RecordingCallback> callback = new RecordingCallback;
    for (const auto& c : kOperations) {
        SCOPED_TRACE(c.call);
        Results out;
        const Status status = callOperation(*mService, c.code, &out, callback);
        EXPECT_TRUE(status.isOk()) << status.toString8().string();
        EXPECT_EQ(Peer::takeCalls(mPeer.service, 1), Strings{c.call});
        EXPECT_EQ(out.text(), c.results);
        EXPECT_EQ(out.output.getGraphicBuffer() != nullptr, c.code == 12);
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

TEST_F(ServiceProtocolTest, ExceptionsTravelAndLeaveTheResultsAlone) {
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
        for (uint32_t code = kFirst; code <= kLast; ++code) {
            mPeer.raise(c.exception, "no", c.code);
            Results out;
            const Status status = callOperation(*mService, code, &out, new RecordingCallback);
            EXPECT_EQ(status.exceptionCode(), c.exception) << code;
            EXPECT_STREQ(status.exceptionMessage().string(), "no");
            EXPECT_EQ(status.serviceSpecificErrorCode(), c.code);
            EXPECT_EQ(out.text(), kUntouched);
            EXPECT_EQ(out.output.getGraphicBuffer(), nullptr);
        }
        mPeer.raise(c.exception, "no", c.code);
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
        {"no vector", 4, "00000000 09000000", android::NOT_ENOUGH_DATA, "9 no 1,2,3 4,5,6,7,8"},
        {"half a vector", 6, "00000000 09000000 02000000 01000000", android::NOT_ENOUGH_DATA,
         "9 no 1,2,3 4,5,6,7,8"},
        {"a null vector", 6, "00000000 09000000 ffffffff", android::UNEXPECTED_NULL,
         "9 no 1,2,3 4,5,6,7,8"},
        {"an empty vector", 6, "00000000 09000000 00000000", OK, "9 no - 4,5,6,7,8"},
        {"no bytes", 5, "00000000 09000000", android::NOT_ENOUGH_DATA, "9 no 1,2,3 4,5,6,7,8"},
        {"fewer bytes", 5, "00000000 09000000 01000000 21000000", OK, "9 no 1,2,3 33"},
        {"no input", 12, "00000000 09000000", android::NOT_ENOUGH_DATA, "9 no 1,2,3 4,5,6,7,8"},
        {"a null output", 12, "00000000 09000000 01000000 00000000 00000000",
         android::UNEXPECTED_NULL, "9 no 1,2,3 4,5,6,7,8"},
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
