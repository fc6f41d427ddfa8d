// SPDX-License-Identifier: Apache-2.0
#include "support/BinderPeer.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <thread>

using android::IBinder;
using android::IPCThreadState;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;

namespace {

void say(const std::string& text) {
    std::cout << (text + "\n") << std::flush;
}

/** The object that is told when the program has stopped running calls. */
sp<IBinder>* gToldAtExit = new sp<IBinder>();
std::atomic<bool> gStopped{false};

}  // namespace

void PeerObject::setGate(bool open) {
    const std::lock_guard<std::mutex> lock(mLock);
    mOpen = open;
    mChanged.notify_all();
}

status_t PeerObject::callBack(const Parcel& data, Parcel* reply) {
    mLastCaller = IPCThreadState::self()->getCallingPid();
    mLastThread = gettid();
    const sp<IBinder> other = data.readStrongBinder();
    const int32_t depth = data.readInt32();
    int32_t total = 0;
    if (depth > 0) {
        Parcel request;
        Parcel answer;
        request.writeStrongBinder(this);
        request.writeInt32(depth - 1);
        const status_t status = other->transact(CALL_BACK, request, &answer);
        if (status != OK) {
            return status;
        }
        total = answer.readInt32();
    }
    // The identity of the caller is back after whatever ran on this thread meanwhile.
    const bool same = mLastCaller == IPCThreadState::self()->getCallingPid();
    return reply->writeInt32(total + (same ? 1 : 1000));
}

void PeerObject::block() {
    std::unique_lock<std::mutex> lock(mLock);
    mMost = std::max(mMost, ++mRunning);
    say("blocked " + std::to_string(mRunning));
    mChanged.wait(lock, [this] { return mOpen; });
    --mRunning;
}

void PeerObject::record(int32_t number) {
    std::unique_lock<std::mutex> lock(mLock);
    mMost = std::max(mMost, ++mRunning);
    mChanged.wait(lock, [this] { return mOpen; });
    --mRunning;
    mRecorded.push_back(number);
    mChanged.notify_all();
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
        case CALL_BACK:
            return callBack(data, reply);
        case KEEP: {
            const std::lock_guard<std::mutex> lock(mLock);
            mKept.push_back(data.readStrongBinder());
            *gToldAtExit = mKept.back();
            return reply->writeStrongBinder(mKept.back());
        }
        case DROP: {
            const std::lock_guard<std::mutex> lock(mLock);
            mKept.clear();
            gToldAtExit->clear();
            return OK;
        }
        case CALL_KEPT: {
            Parcel request;
            Parcel answer;
            return reply->writeInt32(mKept.front()->transact(ECHO, request, &answer));
        }
        case BLOCK:
            block();
            return OK;
        case RECORD:
            record(data.readInt32());
            return OK;
        case RECORDED: {
            std::unique_lock<std::mutex> lock(mLock);
            const size_t awaited = static_cast<size_t>(data.readInt32());
            mChanged.wait(lock, [&] { return mRecorded.size() >= awaited; });
            reply->writeInt32(mMost);
            return reply->writeInt32Vector(mRecorded);
        }
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
        case LOOK_UP:
            return reply->writeStrongBinder(
                android::defaultServiceManager()->checkService(data.readString16()));
        case WAIT: {
            say("waiting");
            char byte;
            const bool got = read(data.readFileDescriptor(), &byte, 1) == 1;
            say(gStopped ? "late" : "done");
            return got ? OK : android::UNKNOWN_ERROR;
        }
        default:
            return BBinder::onTransact(code, data, reply, flags);
    }
}

int runPeer(const std::vector<std::string>& arguments) {
    const std::string name = arguments.at(1);
    const std::string threads = arguments.at(2);
    const sp<PeerObject> object = new PeerObject();
    // Registered before the pool's handler, hence run after it: calls out of here still work.
    std::atexit([] {
        gStopped = true;
        if (*gToldAtExit != nullptr) {
            Parcel request;
            Parcel answer;
            const status_t status = (*gToldAtExit)->transact(PeerObject::ECHO, request, &answer);
            say("stopped " + std::to_string(status));
        }
    });
    if (threads == "pool") {
        android::ProcessState::self()->startThreadPool();
    }
    const status_t status =
        android::defaultServiceManager()->addService(String16(name.c_str()), object);
    say(status == OK ? "registered" : android::statusToString(status));
    if (status != OK) {
        return 1;
    }
    if (threads == "join") {
        std::thread([] { IPCThreadState::self()->joinThreadPool(); }).detach();
    }
    for (std::string word; std::cin >> word;) {
        if (word == "exit") {
            say("exiting");
            std::exit(0);
        } else if (word == "pool") {
            android::ProcessState::self()->startThreadPool();
        } else if (word == "lookup") {
            std::cin >> word;
            const bool found =
                android::defaultServiceManager()->checkService(String16(word.c_str())) != nullptr;
            say(found ? "found" : "missing");
        } else {
            object->setGate(word == "open");
            say(word);
        }
    }
    return 0;
}
