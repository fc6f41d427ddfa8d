// The callback interface between two processes; here the peer is the client that is notified.
#include <binder/Parcel.h>
#include <gtest/gtest.h>

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
using android::binder::Status;
using com::tivora::displayengine::IDisplayEngineCallback;
using protocol::enable;
using protocol::Peer;
using protocol::RecordingCallback;
using protocol::ScriptedBinder;

namespace {

using Strings = std::vector<std::string>;

// "com.tivora.displayengine.IDisplayEngineCallback" behind the platform's header.
const char kToken[] =
    "00000080 ffffffff 54535953 2f000000 "
    "63006f00 6d002e00 74006900 76006f00 72006100 2e006400 69007300 70006c00 61007900 65006e00 "
    "67006900 6e006500 2e004900 44006900 73007000 6c006100 79004500 6e006700 69006e00 65004300 "
    "61006c00 6c006200 61006300 6b000000";

TEST(CallbackProtocolTest, EventsArriveInOrderAndTheirOutcomeIsDropped) {
    const Peer peer;
    const sp<IDisplayEngineCallback> callback = IDisplayEngineCallback::asInterface(peer.callback);
    Strings sent;
    for (int32_t i = 0; i < 50; ++i) {
        EXPECT_TRUE(callback->onEvent(i, -i).isOk());
        EXPECT_TRUE(callback->onEventWithData(3, enable(i % 2 == 0)).isOk());
        sent.push_back("onEvent " + std::to_string(i) + " " + std::to_string(-i));
        sent.push_back(std::string("onEventWithData 3 { Enable=") +
                       (i % 2 == 0 ? "true" : "false") + " }");
    }
    EXPECT_EQ(Peer::takeCalls(peer.callback, 100), sent);
}

TEST(CallbackProtocolTest, RequestsHaveTheirLayoutAndAskForNoReply) {
    const sp<ScriptedBinder> scripted = new ScriptedBinder;
    const sp<IDisplayEngineCallback> proxy = IDisplayEngineCallback::asInterface(scripted);
    EXPECT_TRUE(proxy->onEvent(3, -1).isOk());
    EXPECT_EQ(scripted->code, 1U);
    EXPECT_NE(scripted->flags & IBinder::FLAG_ONEWAY, 0U);
    EXPECT_EQ(scripted->request, std::string(kToken) + " 03000000 ffffffff");

    EXPECT_TRUE(proxy->onEventWithData(3, enable(true)).isOk());
    EXPECT_EQ(scripted->code, 2U);
    EXPECT_NE(scripted->flags & IBinder::FLAG_ONEWAY, 0U);
    // event; present, a bundle of 32 bytes, "BNDL", one entry: "Enable", boolean, 1
    EXPECT_EQ(scripted->request,
              std::string(kToken) +
                  " 03000000 01000000 20000000 424e444c 01000000 06000000 45006e00 "
                  "61006200 6c006500 00000000 09000000 01000000");
}

TEST(CallbackProtocolTest, AMalformedEventCallsNothing) {
    const Peer peer;
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
        EXPECT_EQ(protocol::send(peer.callback, c.code, c.bytes, &reply), c.status);
        EXPECT_EQ(protocol::hex(reply), c.reply);
    }
    EXPECT_EQ(Peer::takeCalls(peer.callback, 1), Strings{"onEvent 3 -1"});
}

TEST(CallbackProtocolTest, TheDefaultAnswersForACallbackThatDoesNotKnowTheEvent) {
    const sp<ScriptedBinder> older = new ScriptedBinder;
    older->returned = android::UNKNOWN_TRANSACTION;
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

    older->returned = android::DEAD_OBJECT;
    EXPECT_EQ(proxy->onEvent(1, 2).transactionError(), android::DEAD_OBJECT);
    older->returned = OK;
    EXPECT_TRUE(proxy->onEvent(1, 2).isOk());
}

}  // namespace

int main(int argc, char** argv) {
    return protocol::testMain(argc, argv);
}
