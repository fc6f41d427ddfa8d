// SPDX-License-Identifier: Apache-2.0
#include "support/BinderPeer.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <thread>
#include <utility>

using android::IBinder;
using android::IPCThreadState;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;

namespace {

void say(const std::string& text) {
    std::cout << (text + "\n") << std::flush;
}

PeerObject* gObject = nullptr;
std::atomic<bool> gHasStopped{false};

}  // namespace

void PeerObject::open() {
    const std::lock_guard<std::mutex> lock(mLock);
    mIsOpen = true;
    mChanged.notify_all();
}

std::vector<int32_t> PeerObject::takeRecords(size_t count) {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait(lock, [&] { return mRecords.size() >= count; });
    return std::exchange(mRecords, {});
}

status_t PeerObject::sayGoodbye() {
    const sp<IBinder> kept = mKept;
    return kept != nullptr ? kept->transact(RECORD, Parcel(), nullptr, FLAG_ONEWAY) : OK;
}

status_t PeerObject::sendEvents(int32_t count, Parcel* reply) {
    int32_t sent = 0;
    status_t status = OK;
    while (sent < count) {
        Parcel event;
        event.writeInt32(sent);
        event.setDataSize(100);
        if ((status = mKept->transact(RECORD, event, nullptr, FLAG_ONEWAY)) != OK) {
            break;
        }
        ++sent;
    }
    reply->writeInt32(sent);
    return reply->writeInt32(status);
}

void PeerObject::block() {
    std::unique_lock<std::mutex> lock(mLock);
    say("blocked " + std::to_string(++mBlocked));
    mChanged.wait(lock, [this] { return mIsOpen; });
    --mBlocked;
}

status_t PeerObject::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    switch (code) {
        case ECHO: {
            const int32_t status = data.readInt32();
            return status == OK ? reply->write(data.data(), data.dataSize()) : status;
        }
        case CALLER:
            reply->writeInt32(IPCThreadState::self()->getCallingPid());
            return reply->writeInt32(static_cast<int32_t>(IPCThreadState::self()->getCallingUid()));
        case KEEP:
            mKept = data.readStrongBinder();
            return reply->writeStrongBinder(mKept);
        case DROP:
            mKept.clear();
            return OK;
        case CALL_KEPT:
            return reply->writeInt32(mKept->pingBinder());
        case EVENTS:
            return sendEvents(data.readInt32(), reply);
        case RECORD: {
            const std::lock_guard<std::mutex> lock(mLock);
            mRecords.push_back(data.readInt32());
            mChanged.notify_all();
            return OK;
        }
        case BLOCK:
            block();
            return OK;
        case LARGE:
            return reply->setDataSize(static_cast<size_t>(data.readInt32()));
        case WRITE:
            return write(data.readFileDescriptor(), "written", 7) == 7 ? OK : -errno;
        case FORK: {
            const pid_t child = fork();
            while (child == 0) {
                pause();
            }
            return reply->writeInt32(child);
        }
        case EXIT:
            std::exit(0);
        case WAIT: {
            say("waiting");
            char byte;
            const bool isRead = read(data.readFileDescriptor(), &byte, 1) == 1;
            say(gHasStopped ? "late" : "done");
            return isRead ? OK : android::UNKNOWN_ERROR;
        }
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

int runPeer(const std::vector<std::string>& arguments) {
    const sp<PeerObject> object = new PeerObject();
    gObject = object.get();
    // Registered before the pool's handler, hence run after it: calls out of here still work.
    std::atexit([] {
        gHasStopped = true;
        say("goodbye " + std::to_string(gObject->sayGoodbye()));
    });
    const status_t status =
        android::defaultServiceManager()->addService(android::String16("peer"), object);
    if (arguments.at(1) == "pool") {
        android::ProcessState::self()->startThreadPool();
    } else if (arguments.at(1) == "join") {
        std::thread([] { IPCThreadState::self()->joinThreadPool(); }).detach();
    }
    say(status == OK ? "registered" : android::statusToString(status));
    for (std::string word; status == OK && std::cin >> word;) {
        if (word == "open") {
            object->open();
        } else if (word == "pool") {
            android::ProcessState::self()->startThreadPool();
        } else if (word == "exit") {
            say("exiting");
            std::exit(0);
        } else {
            say(word);
        }
    }
    return status == OK ? 0 : 1;
}
