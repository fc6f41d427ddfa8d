// SPDX-License-Identifier: Apache-2.0
#include "Session.h"

#include <poll.h>

#include <algorithm>
#include <new>

#include <binder/Parcel.h>

#include "BinderProcess.h"

namespace android::transport {
namespace {

/** Within this time the kernel has closed all sockets of a process that dies. */
constexpr int64_t kDeathMs = 100;

}  // namespace

Session::Session(BinderProcess& process, ForkSafeFd mainLine, const ucred& peer,
                 const sp<IBinder>& service)
    : mProcess(process),
      mMainLine{std::move(mainLine)},
      mPeer(peer),
      mIsService(service != nullptr),
      mObjects(service) {
    mLines.reserve(kMaxLines);
    mIdle.reserve(kMaxIdleLines);
}

bool Session::findEnd(int64_t deadlineMs) {
    if (!isDead() && !waitForEvent(mMainLine.socket.get(), POLLRDHUP, deadlineMs)) {
        return false;
    }
    end(nullptr);
    return true;
}

/**
 * Ends the session, once; a reason is logged. Waiting and later calls answer DEAD_OBJECT. What the
 * peer held is let go of here, or by the thread of the main line.
 */
void Session::end(const char* reason) {
    Mutex::Autolock lock(mLock);
    mIsDead = true;
    if (std::exchange(mHasEnded, true)) {
        return;
    }
    // The threads that wait at the other ends, and at these, must not wait for good.
    ::shutdown(mMainLine.socket.get(), SHUT_RDWR);
    for (const auto& line : mLines) {
        ::shutdown(line->socket.get(), SHUT_RDWR);
    }
    mLines.clear();
    mIdle.clear();
    mLineReturned.notify_all();
    const bool isRead = mIsRead;
    lock.unlock();
    if (reason != nullptr) {
        log("the session with process %d ends: %s", reason);
    }
    mProcess.forget(*this);
    if (!isRead) {
        mObjects.dropExports();
    }
}

void Session::log(const char* format, const char* reason) const {
    __android_log_print(ANDROID_LOG_ERROR, "binder", format, static_cast<int>(mPeer.pid), reason);
}

status_t Session::call(uint64_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                       uint32_t flags) try {
    if (isDead()) {
        return DEAD_OBJECT;
    }
    FrameHeader header;
    header.handle = handle;
    header.code = code;
    header.flags = flags;
    if ((flags & IBinder::FLAG_ONEWAY) != 0) {
        const status_t status = sendParcel(mMainLine, header, data);
        if (status == DEAD_OBJECT) {
            end(nullptr);
        }
        return status;
    }
    if (mIsService) {
        log("a call of client process %d is not made: %s", "it is not oneway");
        return INVALID_OPERATION;
    }
    Parcel ignored;
    reply = reply != nullptr ? reply : &ignored;
    reply->freeData();
    std::shared_ptr<Line> line;
    bool isReplied = false;
    status_t status = takeLine(&line);
    // Puts the line back, however this ends; it can be used again if nothing more will come.
    const std::shared_ptr<void> use(nullptr, [&](void*) { putLine(line, isReplied); });
    status = status == OK ? sendParcel(*line, header, data) : status;
    if (status == OK) {
        IncomingFrame frame(line->buffer);
        status = frame.receive(line->socket.get());
        isReplied = status != DEAD_OBJECT;
        if (isReplied && (status != OK || frame.header.type != FrameType::kReply ||
                          !unpack(frame, reply, &status))) {
            end("malformed frame");
            return DEAD_OBJECT;
        }
        status = status == OK ? frame.header.status : status;
    }
    if (isReplied || status != DEAD_OBJECT) {
        return status;
    }
    // A line also ends when the service can open no descriptor or start no thread for it.
    return findEnd(nowMs() + kDeathMs) ? DEAD_OBJECT : FAILED_TRANSACTION;
} catch (const std::bad_alloc&) {
    return NO_MEMORY;
}

/** Takes the line that was used last, or a new one; waits while there are as many as can be. */
status_t Session::takeLine(std::shared_ptr<Line>* line) {
    Mutex::Autolock lock(mLock);
    mLineReturned.wait(lock.native(), [this]() REQUIRES(mLock) {
        return mHasEnded || !mIdle.empty() || mLines.size() < kMaxLines;
    });
    if (mHasEnded) {
        return DEAD_OBJECT;
    }
    if (!mIdle.empty()) {
        *line = std::move(mIdle.back());
        mIdle.pop_back();
        return OK;
    }
    *line = std::make_shared<Line>();
    ForkSafeFd services;
    {
        int ends[2];
        const Mutex::Autolock noFork(forkMutex());
        if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0) {
            UniqueFd second(ends[1]);
            (*line)->socket = ForkSafeFd(ends[0]);
            services = ForkSafeFd(second.release());
        }
    }
    if (!services.ok()) {
        lock.unlock();
        log("no call line to process %d: %s", "too many open files");
        return FAILED_TRANSACTION;
    }
    OutgoingFrame frame;
    frame.header.type = FrameType::kCallLine;
    frame.fds.push_back(services.get());
    const status_t status = frame.send(mMainLine.socket.get());
    if (status == OK) {
        mLines.push_back(*line);
    }
    return status;
}

/** Ends the use of a line; one that is not usable any more is closed. */
void Session::putLine(const std::shared_ptr<Line>& line, bool isUsable) {
    const Mutex::Autolock lock(mLock);
    if (isUsable && !mHasEnded && mIdle.size() < kMaxIdleLines) {
        mIdle.push_back(line);
    } else {
        mLines.erase(std::remove(mLines.begin(), mLines.end(), line), mLines.end());
    }
    mLineReturned.notify_one();
}

status_t Session::sendParcel(const Line& line, const FrameHeader& header, const Parcel& parcel) {
    const std::vector<ParcelObject>& objects = parcel.objects();
    if (parcel.dataSize() > kMaxTransactionBytes) {
        return FAILED_TRANSACTION;
    }
    OutgoingFrame frame{header, {}, parcel.data(), {}};
    frame.header.dataSize = static_cast<uint32_t>(parcel.dataSize());
    frame.records.reserve(objects.size());
    frame.fds.reserve(objects.size() + 1);
    for (const auto& [offset, binder, fd] : objects) {
        BpBinder* const proxy = binder != nullptr ? binder->remoteBinder() : nullptr;
        if (proxy != nullptr && proxy->mSession.get() == this) {
            frame.records.push_back({offset, proxy->mHandle, ObjectKind::kReceivers});
        } else if (binder != nullptr) {
            const uint64_t handle = mObjects.exportObject(binder);
            frame.records.push_back({offset, handle, ObjectKind::kSenders});
        } else {
            frame.records.push_back({offset, 0, ObjectKind::kDescriptor});
            frame.fds.push_back(fd);
        }
    }
    const status_t status = frame.send(line.socket.get());
    for (const WireObject& record : frame.records) {
        if (status != OK && record.kind == ObjectKind::kSenders) {
            mObjects.release(record.handle, 1);
        }
    }
    return status;
}

void Session::giveBack(BpBinder* proxy) {
    if (!isDead()) {
        OutgoingFrame frame;
        frame.header.type = FrameType::kRelease;
        frame.header.handle = proxy->mHandle;
        frame.header.code = static_cast<uint32_t>(mObjects.forget(proxy));
        // A peer so far behind that there is no room keeps the object as long as the session.
        frame.send(mMainLine.socket.get());
    }
}

}  // namespace android::transport
