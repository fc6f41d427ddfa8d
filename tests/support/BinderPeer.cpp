// SPDX-License-Identifier: Apache-2.0
#include "support/BinderPeer.h"

#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

using namespace android;

namespace {

void say(const std::string& text) {
    std::cout << (text + "\n") << std::flush;
}

status_t send(const sp<IBinder>& to, int32_t number) {
    Parcel event;
    event.writeInt32(number);
    event.setDataSize(100);
    return to->transact(PeerObject::EVENT, event, nullptr, IBinder::FLAG_ONEWAY);
}

}  // namespace

status_t PeerObject::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    switch (code) {
        case ANSWER: {
            const int32_t answer = data.readInt32();
            return answer < 0 ? answer : reply->setDataSize(static_cast<size_t>(answer));
        }
        case KEEP:
            mKept = data.readStrongBinder();
            reply->writeStrongBinder(mKept);
            return reply->writeInt32(mKept != nullptr ? mKept->pingBinder() : OK);
        case EVENTS: {
            const int32_t count = data.readInt32();
            int32_t sent = 0;
            status_t status = OK;
            while (sent < count && (status = send(mKept, sent)) == OK) {
                ++sent;
            }
            reply->writeInt32(sent);
            return reply->writeInt32(status);
        }
        case EVENT:
            mLines->add("event " + std::to_string(data.readInt32()));
            return OK;
        case BLOCK: {
            say("blocked");
            char byte;
            const ssize_t size = read(data.readFileDescriptor(), &byte, 1);
            say("done");
            return size == 1 ? OK : BAD_VALUE;
        }
        case FORK: {
            const pid_t child = fork();
            while (child == 0) {
                pause();
            }
            return reply->writeInt32(child);
        }
        case EXIT:
            std::exit(0);
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

int runPeer(std::string word) {
    const status_t status = defaultServiceManager()->addService(String16("peer"), new PeerObject());
    say(status == OK ? "registered" : statusToString(status));
    do {
        say(word);
        if (word == "pool") {
            ProcessState::self()->startThreadPool();
        }
    } while (status == OK && word != "exit" && std::cin >> word);
    return 0;
}
