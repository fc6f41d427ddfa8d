// SPDX-License-Identifier: Apache-2.0
#include "support/ProtocolPeer.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <cstring>
#include <iostream>

#include "support/ProtocolPeerObjects.h"

using android::IBinder;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;

namespace protocol {
namespace {

constexpr char kPeerArgument[] = "--protocol-peer";
constexpr char kServiceName[] = "protocol.service";
constexpr char kReady[] = "ready";

sp<IBinder> find(const char* name) {
    const sp<IBinder> found = android::defaultServiceManager()->getService(String16(name));
    EXPECT_NE(found, nullptr) << name;
    return found;
}

}  // namespace

int serve(const std::map<std::string, sp<IBinder>>& objects) {
    for (const auto& [name, object] : objects) {
        if (android::defaultServiceManager()->addService(String16(name.c_str()), object) != OK) {
            return 1;
        }
    }
    android::ProcessState::self()->startThreadPool();
    std::cout << kReady << std::endl;
    android::IPCThreadState::self()->joinThreadPool();
    return 0;
}

int testMain(int argc, char** argv, const std::map<std::string, Role>& roles) {
    if (argc == 2 && std::strcmp(argv[1], kPeerArgument) == 0) {
        return serve({{kServiceName, new RecordingService}});
    }
    const auto role = roles.find(argc > 1 ? argv[1] : "");
    if (role != roles.end()) {
        return role->second(argc > 2 ? argv[2] : "");
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

Peer::Peer() : mProcess(ChildProcess::ownPath(), {kPeerArgument}) {
    EXPECT_TRUE(mProcess.waitForLine(kReady));
    service = find(kServiceName);
}

status_t send(const sp<IBinder>& binder, uint32_t code, const std::string& bytes, Parcel* reply) {
    Parcel data;
    const std::vector<uint8_t> raw = unhex(bytes);
    data.ipcSetData(raw, {});
    return binder->transact(code, data, reply);
}

std::string hex(const Parcel& parcel) {
    return hex(parcel.data(), parcel.dataSize());
}

std::string hex(const uint8_t* bytes, size_t size) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        if (i > 0 && i % 4 == 0) {
            text += ' ';
        }
        text += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
    }
    return text;
}

std::vector<uint8_t> unhex(const std::string& text) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size();) {
        if (text[i] == ' ') {
            ++i;
        } else {
            bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
            i += 2;
        }
    }
    return bytes;
}

std::vector<std::string> Peer::takeCalls(const sp<IBinder>& recorder, int32_t count) {
    Parcel data;
    Parcel reply;
    data.writeInt32(count);
    EXPECT_EQ(recorder->transact(CONTROL_TAKE_CALLS, data, &reply), OK);
    std::vector<std::string> texts;
    while (reply.dataAvail() > 0) {
        texts.emplace_back(android::String8(reply.readString16()).string());
    }
    return texts;
}

void raise(const sp<IBinder>& service, int32_t exception, const char* message, int32_t code) {
    Parcel data;
    Parcel reply;
    data.writeInt32(exception);
    data.writeString16(String16(message));
    data.writeInt32(code);
    EXPECT_EQ(service->transact(CONTROL_RAISE, data, &reply), OK);
}

status_t ScriptedBinder::onTransact(uint32_t transactionCode, const Parcel& data, Parcel* out,
                                    uint32_t transactionFlags) {
    code = transactionCode;
    flags = transactionFlags;
    request = hex(data);
    const std::vector<uint8_t> answer = unhex(reply);
    if (out != nullptr) {
        out->write(answer.data(), answer.size());
    }
    return returned;
}

}  // namespace protocol
