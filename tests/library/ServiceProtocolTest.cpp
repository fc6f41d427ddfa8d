// SPDX-License-Identifier: Apache-2.0
// The two interfaces between processes: every transaction and its bytes. Bytes that nobody of ours
// sends are the fuzzers' subject.
#include <binder/Parcel.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "aidl/IDisplayEngineService.h"
#include "support/ProtocolPeer.h"
#include "support/ProtocolPeerObjects.h"
#include "support/ServiceOperations.h"

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::binder::Status;
using com::tivora::displayengine::IDisplayEngineCallback;
using com::tivora::displayengine::IDisplayEngineService;
using protocol::callOperation;
using protocol::kOperations;
using protocol::RecordingService;
using protocol::Results;
using protocol::ScriptedBinder;

namespace {

class ServiceProtocolTest : public ::testing::Test {
protected:
    /** The request that the proxy sends for `code`. */
    std::string capture(uint32_t code, const sp<IDisplayEngineCallback>& callback = nullptr) {
        Results out;
        EXPECT_FALSE(callOperation(*mProxy, code, &out, callback).isOk());  // an empty reply
        EXPECT_EQ(mScripted->code, code);
        EXPECT_EQ(mScripted->flags & IBinder::FLAG_ONEWAY, 0U);
        return mScripted->request;
    }

    sp<RecordingService> mService = new RecordingService;
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
        EXPECT_EQ(protocol::send(mService, c.code, request, &reply), OK);
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

TEST_F(ServiceProtocolTest, ExceptionsHaveTheirLayout) {
    // code, "no", no remote trace, and the service's own code where there is one
    struct {
        int32_t exception;
        int32_t code;
        const char* reply;
    } const cases[] = {
        {Status::EX_SECURITY, 0, "ffffffff 02000000 6e006f00 00000000 00000000"},
        {Status::EX_UNSUPPORTED_OPERATION, 0, "f9ffffff 02000000 6e006f00 00000000 00000000"},
        {Status::EX_SERVICE_SPECIFIC, 77, "f8ffffff 02000000 6e006f00 00000000 00000000 4d000000"},
    };
    for (const auto& c : cases) {
        protocol::raise(mService, c.exception, "no", c.code);
        Parcel reply;
        EXPECT_EQ(protocol::send(mService, 1, std::string(kToken) + " 2c000000", &reply), OK);
        EXPECT_EQ(protocol::hex(reply), c.reply);
    }
}

TEST_F(ServiceProtocolTest, AnInterfaceKnowsItsObjectsAndItsDefault) {
    EXPECT_EQ(IDisplayEngineService::asInterface(nullptr), nullptr);
    EXPECT_EQ(IDisplayEngineService::asInterface(mService).get(), mService.get());

    EXPECT_FALSE(IDisplayEngineService::setDefaultImpl(nullptr));
    EXPECT_EQ(IDisplayEngineService::getDefaultImpl(), nullptr);
    mScripted->returned = android::UNKNOWN_TRANSACTION;
    Results out;
    EXPECT_EQ(callOperation(*mProxy, 1, &out).transactionError(), android::UNKNOWN_TRANSACTION);
    EXPECT_TRUE(IDisplayEngineService::setDefaultImpl(std::make_unique<RecordingService>()));
    EXPECT_FALSE(IDisplayEngineService::setDefaultImpl(nullptr));
    EXPECT_TRUE(callOperation(*mProxy, 1, &out).isOk());
    EXPECT_EQ(out.text(), kOperations[0].results);
}

// "com.tivora.displayengine.IDisplayEngineCallback" behind the platform's header.
const char kCallbackToken[] =
    "00000080 ffffffff 54535953 2f000000 "
    "63006f00 6d002e00 74006900 76006f00 72006100 2e006400 69007300 70006c00 61007900 65006e00 "
    "67006900 6e006500 2e004900 44006900 73007000 6c006100 79004500 6e006700 69006e00 65004300 "
    "61006c00 6c006200 61006300 6b000000";

TEST_F(ServiceProtocolTest, EventsHaveTheirLayoutAndAskForNoReply) {
    const sp<IDisplayEngineCallback> proxy = IDisplayEngineCallback::asInterface(mScripted);
    EXPECT_TRUE(proxy->onEvent(3, -1).isOk());
    EXPECT_EQ(mScripted->code, 1U);
    EXPECT_NE(mScripted->flags & IBinder::FLAG_ONEWAY, 0U);
    EXPECT_EQ(mScripted->request, std::string(kCallbackToken) + " 03000000 ffffffff");

    EXPECT_TRUE(proxy->onEventWithData(3, protocol::enable(true)).isOk());
    EXPECT_EQ(mScripted->code, 2U);
    EXPECT_NE(mScripted->flags & IBinder::FLAG_ONEWAY, 0U);
    // event; present, a bundle of 32 bytes, "BNDL", one entry: "Enable", boolean, 1
    EXPECT_EQ(mScripted->request,
              std::string(kCallbackToken) +
                  " 03000000 01000000 20000000 424e444c 01000000 06000000 45006e00 "
                  "61006200 6c006500 00000000 09000000 01000000");
}

}  // namespace
