// The callback interface between two processes; here the peer is the client that is notified.
#include <binder/Parcel.h>
#include <binder/PersistableBundle.h>
#include <gtest/gtest.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <string>
#include <vector>

#include "aidl/IDisplayEngineCallback.h"
#include "support/ProtocolPeer.h"
#include "support/ProtocolPeerObjects.h"

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using com::tivora::displayengine::IDisplayEngineCallback;
using protocol::Peer;
using protocol::RecordingCallback;

namespace {

using Strings = std::vector<std::string>;

PersistableBundle enable(bool on) {
    PersistableBundle data;
    data.putBoolean(String16("Enable"), on);
    return data;
}

class CallbackProtocolTest : public ::testing::Test {
protected:
    Peer mPeer;
    sp<IDisplayEngineCallback> mCallback = IDisplayEngineCallback::asInterface(mPeer.callback);
    sp<IDisplayEngineCallback> mScripted = IDisplayEngineCallback::asInterface(mPeer.scripted);
};

// "com.tivora.displayengine.IDisplayEngineCallback" behind the platform's header.
const char kToken[] =
    "00000080 ffffffff 54535953 2f000000 "
    "63006f00 6d002e00 74006900 76006f00 72006100 2e006400 69007300 70006c00 61007900 65006e00 "
    "67006900 6e006500 2e004900 44006900 73007000 6c006100 79004500 6e006700 69006e00 65004300 "
    "61006c00 6c006200 61006300 6b000000";

TEST_F(CallbackProtocolTest, EventsArriveInOrderAndTheirOutcomeIsDropped) {
    Strings sent;
    for (int32_t i = 0; i < 50; ++i) {
        EXPECT_TRUE(mCallback->onEvent(i, -i).isOk());
        EXPECT_TRUE(mCallback->onEventWithData(3, enable(i % 2 == 0)).isOk());
        sent.push_back("onEvent " + std::to_string(i) + " " + std::to_string(-i));
        sent.push_back(i % 2 == 0 ? "onEventWithData 3 { Enable=true }"
                                  : "onEventWithData 3 { Enable=false }");
    }
    EXPECT_EQ(Peer::takeCalls(mPeer.callback, 100), sent);
}

TEST_F(CallbackProtocolTest, RequestsHaveTheirLayoutAndAskForNoReply) {
    // Whatever the other side answers: a call is done when it is on its way.
    mPeer.script(android::INVALID_OPERATION, "fcffffff");
    EXPECT_TRUE(mScripted->onEvent(3, -1).isOk());
    Peer::Request request = mPeer.takeRequest();
    EXPECT_EQ(request.code, 1U);
    EXPECT_NE(request.flags & IBinder::FLAG_ONEWAY, 0U);
    EXPECT_EQ(request.bytes, std::string(kToken) + " 03000000 ffffffff");

    EXPECT_TRUE(mScripted->onEventWithData(3, enable(true)).isOk());
    request = mPeer.takeRequest();
    EXPECT_EQ(request.code, 2U);
    EXPECT_NE(request.flags & IBinder::FLAG_ONEWAY, 0U);
    // event; present, a bundle of 32 bytes, "BNDL", one entry: "Enable", boolean, 1
    EXPECT_EQ(request.bytes, std::string(kToken) +
                                 " 03000000 01000000 20000000 424e444c 01000000 06000000 45006e00 "
                                 "61006200 6c006500 00000000 09000000 01000000");
}

TEST_F(CallbackProtocolTest, AMalformedEventCallsNothing) {
    const std::string otherToken = std::string(kToken).replace(36, 2, "64");
    struct {
        const char* what;
        uint32_t code;
        std::string bytes;
        status_t status;
        const char* reply;
    } const cases[] = {
        {"whole", 1, std::string(kToken) + " 03000000 ffffffff", OK, ""},
        {"no token", 1, "", android::BAD_TYPE, ""},
        {"another interface", 1, otherToken + " 03000000 ffffffff", android::BAD_TYPE, ""},
        {"another interface", 2, otherToken + " 03000000 01000000 00000000", android::BAD_TYPE, ""},
        {"no event", 1, kToken, android::NOT_ENOUGH_DATA, ""},
        {"no value", 1, std::string(kToken) + " 03000000", android::NOT_ENOUGH_DATA, ""},
        {"no data", 2, std::string(kToken) + " 03000000", android::NOT_ENOUGH_DATA, ""},
        {"null data", 2, std::string(kToken) + " 03000000 00000000", OK,
         "fcffffff 00000000 00000000 00000000"},
        {"another code", 3, std::string(kToken) + " 03000000", android::UNKNOWN_TRANSACTION, ""},
        {"code 0", 0, std::string(kToken) + " 03000000", android::UNKNOWN_TRANSACTION, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Parcel reply;
        EXPECT_EQ(protocol::send(mPeer.callback, c.code, c.bytes, &reply), c.status);
        EXPECT_EQ(protocol::hex(reply), c.reply);
    }
    EXPECT_EQ(Peer::takeCalls(mPeer.callback, 1), Strings{"onEvent 3 -1"});
}

/// A callback that does not know the newer events: its process is this one, so that its answer to a
/// oneway call reaches the caller.
class OlderCallback : public android::BBinder {
public:
    android::status_t answer = android::UNKNOWN_TRANSACTION;

protected:
    android::status_t onTransact(uint32_t, const Parcel&, Parcel*, uint32_t) override {
        return answer;
    }
};

TEST(CallbackDefaultTest, AnswersForACallbackThatDoesNotKnowTheEvent) {
    const sp<OlderCallback> older = new OlderCallback;
    const sp<IDisplayEngineCallback> proxy = IDisplayEngineCallback::asInterface(older);
    EXPECT_EQ(proxy->onEvent(1, 2).transactionError(), android::UNKNOWN_TRANSACTION);

    EXPECT_FALSE(IDisplayEngineCallback::setDefaultImpl(nullptr));
    auto fallback = std::make_unique<RecordingCallback>();
    RecordingCallback& recorder = *fallback;
    EXPECT_TRUE(IDisplayEngineCallback::setDefaultImpl(std::move(fallback)));
    EXPECT_FALSE(IDisplayEngineCallback::setDefaultImpl(nullptr));
    EXPECT_EQ(proxy->onEvent(1, 2).exceptionCode(), Status::EX_ILLEGAL_STATE);
    EXPECT_EQ(proxy->onEventWithData(3, enable(true)).exceptionCode(), Status::EX_ILLEGAL_STATE);
    EXPECT_EQ(recorder.take(2), (Strings{"onEvent 1 2", "onEventWithData 3 { Enable=true }"}));

    older->answer = android::DEAD_OBJECT;
    EXPECT_EQ(proxy->onEvent(1, 2).transactionError(), android::DEAD_OBJECT);
    older->answer = OK;
    EXPECT_TRUE(proxy->onEvent(1, 2).isOk());
}

}  // namespace

int main(int argc, char** argv) {
    return protocol::testMain(argc, argv);
}
