// SPDX-License-Identifier: Apache-2.0
// What a session does with the frames that the peer sends.
#include <poll.h>

#include <exception>
#include <new>
#include <thread>

#include <binder/Parcel.h>

#include "BinderProcess.h"

namespace android::transport {
namespace {

// Plain data: a thread that calls while the process exits must not find it destroyed.
thread_local const ucred* tCaller = nullptr;

bool isCall(const FrameHeader& header, uint32_t flags) {
    return header.type == FrameType::kCall && (header.flags & IBinder::FLAG_ONEWAY) == flags;
}

}  // namespace

const ucred* currentCaller() {
    return tCaller;
}

bool startThread(std::function<void()> body) {
    try {
        std::thread(std::move(body)).detach();
        return true;
    } catch (const std::exception& error) {
        __android_log_print(ANDROID_LOG_ERROR, "binder", "cannot start a thread: %s", error.what());
        return false;
    }
}

// The main line.

void Session::startReading() {
    const Mutex::Autolock lock(mLock);
    if (!mIsRead && !mHasEnded) {
        mIsRead = startThread([self = shared_from_this()] { self->readMainLine(); });
    }
}

void Session::readMainLine() {
    while (readFrame()) {
    }
    end(nullptr);
    const BinderProcess::Pass pass(mProcess);
    mObjects.dropExports();
    for (sp<BpBinder> proxy = mObjects.takeProxy(); proxy != nullptr;
         proxy = mObjects.takeProxy()) {
        proxy->reportDeath();
    }
}

/** Takes the next frame of the main line; false when the session has ended. */
bool Session::readFrame() try {
    const int socket = mMainLine.socket.get();
    waitForEvent(socket, POLLIN, -1);
    IncomingFrame frame(mMainLine.buffer);
    ForkSafeFd callLine;
    status_t status;
    {
        const Mutex::Autolock noFork(forkMutex());
        status = frame.receive(socket, MSG_DONTWAIT);
        if (status == OK && frame.header.type == FrameType::kCallLine && !frame.fdsLost &&
            frame.header.fdCount == 1) {
            const int fd = frame.fd(0);
            frame.releaseFds();
            callLine = ForkSafeFd(fd);
        }
    }
    if (status == BAD_VALUE || (status == OK && !takeFrame(frame, std::move(callLine)))) {
        end(kMalformed);
    }
    return status == OK && !isDead();
} catch (const std::bad_alloc&) {
    log("a frame of process %d is lost: %s", "out of memory");
    return true;
}

bool Session::takeFrame(IncomingFrame& frame, ForkSafeFd callLine) {
    const FrameHeader& header = frame.header;
    if (header.type == FrameType::kCallLine) {
        addLine(std::move(callLine));
        return mIsService && header.fdCount == 1;
    }
    const BinderProcess::Pass pass(mProcess);
    if (header.type == FrameType::kRelease) {
        return mObjects.release(header.handle, header.code);
    }
    Parcel reply;
    status_t status = OK;
    return isCall(header, IBinder::FLAG_ONEWAY) && runCall(frame, &reply, &status);
}

// Call lines, at the service.

void Session::addLine(ForkSafeFd socket) {
    const auto line = std::make_shared<Line>();
    line->socket = std::move(socket);
    Mutex::Autolock lock(mLock);
    if (!line->socket.ok() || mLines.size() == kMaxLines) {
        lock.unlock();
        log("a call line of process %d is refused: %s",
            line->socket.ok() ? "there are too many" : "too many open files");
    } else if (startThread([self = shared_from_this(), line] { self->serveLine(line); })) {
        mLines.push_back(line);
    }
}

void Session::serveLine(const std::shared_ptr<Line>& line) {
    std::vector<sp<IBinder>> sentHome;
    while (serveCall(*line, &sentHome)) {
    }
    putLine(line, false);
}

/**
 * Receives a call, runs it and sends the reply; false at the end of the line. `sentHome` are the
 * peer's own objects of the last reply: given back before the peer has read the reply, they would
 * not be found there. The next call tells that it has.
 */
bool Session::serveCall(const Line& line, std::vector<sp<IBinder>>* sentHome) try {
    IncomingFrame frame(line.buffer);
    status_t status = frame.receive(line.socket.get());
    sentHome->clear();
    if (status == DEAD_OBJECT) {
        return false;
    }
    const BinderProcess::Pass pass(mProcess);
    Parcel reply;
    if (status != OK || !isCall(frame.header, 0) || !runCall(frame, &reply, &status)) {
        end(kMalformed);
        return false;
    }
    for (const ParcelObject& object : reply.objects()) {
        if (object.binder != nullptr && object.binder->remoteBinder() != nullptr) {
            sentHome->push_back(object.binder);
        }
    }
    FrameHeader header;
    header.type = FrameType::kReply;
    header.status = status != OK ? status : sendParcel(line, header, reply);
    return header.status == OK || sendParcel(line, header, Parcel()) == OK;
} catch (const std::bad_alloc&) {
    log("a call of process %d is lost: %s", "out of memory");
    return false;
}

// What frames hold.

/** Runs a call. What came with it is let go of before this returns, unless the target keeps it. */
bool Session::runCall(IncomingFrame& frame, Parcel* reply, status_t* status) {
    Parcel request;
    const FrameHeader& header = frame.header;
    const sp<IBinder> target = mObjects.exported(header.handle);
    if (target == nullptr || !unpack(frame, &request, status)) {
        return false;
    }
    if (*status == OK) {
        tCaller = &mPeer;
        *status = target->transact(header.code, request, reply, header.flags);
        tCaller = nullptr;
    }
    return true;
}

/**
 * Turns a frame's body into what a parcel holds. `status` is FAILED_TRANSACTION, and the parcel
 * empty, when this process has no room for the descriptors.
 */
bool Session::unpack(IncomingFrame& frame, Parcel* parcel, status_t* status) {
    const FrameHeader& header = frame.header;
    if (frame.fdsLost) {
        log(header.type == FrameType::kReply ? "a reply of process %d is lost: %s"
                                             : "a call of process %d is lost: %s",
            "too many open files");
        *status = FAILED_TRANSACTION;
        return true;
    }
    std::vector<WireObject> records(header.objectCount);
    std::vector<ParcelObject> objects(header.objectCount);
    std::vector<uint8_t> data(header.dataSize);
    const size_t recordBytes = records.size() * sizeof(WireObject);
    if (!frame.readBody(0, records.data(), recordBytes) ||
        !frame.readBody(recordBytes, data.data(), data.size())) {
        return false;
    }
    size_t fdCount = 0;
    for (size_t i = 0; i < records.size(); ++i) {
        const auto& [offset, handle, kind, reserved] = records[i];
        objects[i].offset = offset;
        if (kind == ObjectKind::kSenders) {
            objects[i].binder = mObjects.receive(shared_from_this(), handle);
        } else if (kind == ObjectKind::kReceivers) {
            objects[i].binder = mObjects.exported(handle);
        } else if (kind == ObjectKind::kDescriptor && fdCount < header.fdCount) {
            objects[i].fd = frame.fd(fdCount++);
        }
        if (objects[i].binder == nullptr && objects[i].fd < 0) {
            return false;
        }
    }
    if (fdCount != header.fdCount) {
        return false;
    }
    frame.releaseFds();
    frame.closeFds();
    *status = parcel->ipcSetData(std::move(data), std::move(objects));
    return *status == OK;
}

}  // namespace android::transport
