// SPDX-License-Identifier: Apache-2.0
#include "support/BinderPeer.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <poll.h>
#include <unistd.h>
#include <utils/String8.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <thread>
#include <utility>

using namespace android;

namespace {

sp<IBinder>* gKept = new sp<IBinder>();
std::atomic<bool> gHasStopped{false};

void say(const std::string& text) {
    std::cout << (text + "\n") << std::flush;
}

status_t send(int32_t number) {
    Parcel event;
    event.writeInt32(number);
    event.setDataSize(100);
    return (*gKept)->transact(PeerObject::EVENT, event, nullptr, IBinder::FLAG_ONEWAY);
}

/** Registered before the pool's handler, hence run after it: calls out of here still work. */
void sayGoodbye() {
    gHasStopped = true;
    say("goodbye " + std::to_string(*gKept != nullptr ? send(-1) : OK));
}

}  // namespace

status_t PeerObject::dump(int fd, const Vector<String16>& args) {
    const String8 text(args[0]);
    return write(fd, text.c_str(), text.size()) > 0 ? OK : -errno;
}

std::vector<int32_t> PeerObject::takeEvents(size_t count) {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait(lock, [&] { return mEvents.size() >= count; });
    return std::exchange(mEvents, {});
}

status_t PeerObject::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    switch (code) {
        case ANSWER: {
            const int32_t answer = data.readInt32();
            return answer < 0 ? answer : reply->setDataSize(static_cast<size_t>(answer));
        }
        case KEEP:
            *gKept = data.readStrongBinder();
            reply->writeStrongBinder(*gKept);
            return reply->writeInt32(*gKept != nullptr ? (*gKept)->pingBinder() : OK);
        case EVENTS: {
            const int32_t count = data.readInt32();
            int32_t sent = 0;
            status_t status = OK;
            while (sent < count && (status = send(sent)) == OK) {
                ++sent;
            }
            reply->writeInt32(sent);
            return reply->writeInt32(status);
        }
        case EVENT: {
            const std::lock_guard<std::mutex> lock(mLock);
            mEvents.push_back(data.readInt32());
            mChanged.notify_all();
            return OK;
        }
        case BLOCK: {
            say("blocked");
            pollfd waited = {data.readFileDescriptor(), POLLIN, 0};
            poll(&waited, 1, -1);
            say(gHasStopped ? "late" : "done");
            return OK;
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

int runPeer(const std::string& threads) {
    std::atexit(sayGoodbye);
    const status_t status = defaultServiceManager()->addService(String16("peer"), new PeerObject());
    if (threads == "pool") {
        ProcessState::self()->startThreadPool();
    } else if (threads == "join") {
        std::thread([] { IPCThreadState::self()->joinThreadPool(); }).detach();
    }
    say(status == OK ? "registered" : statusToString(status));
    std::string word;
    while (status == OK && std::cin >> word && word != "exit") {
        if (word == "pool") {
            ProcessState::self()->startThreadPool();
        } else {
            say(word);
        }
    }
    say("exiting");
    return 0;
}
