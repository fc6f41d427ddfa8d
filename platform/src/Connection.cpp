// SPDX-License-Identifier: Apache-2.0
#include "Connection.h"

#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <utility>

#include <android/log.h>

#include "BinderProcess.h"

namespace android {
namespace transport {
namespace {

/** A peer that is this far behind with oneway calls is sent no more of them. */
constexpr size_t kMaxOnewayAhead = 4 * 1024 * 1024;
/** Oneway calls are acknowledged in portions of this size. */
constexpr size_t kOnewayPortion = 64 * 1024;

/** What a oneway call counts for: its parcel, and what it takes to keep it. */
size_t onewayCost(size_t dataSize) {
    return dataSize + 256;
}

std::atomic<uint64_t> gNextConnectionId{1};

/**
 * A call from a peer for as long as this thread runs it. These stand on the thread's stack, the
 * innermost first, and tell which of a peer's waiting calls an outgoing one is made for.
 */
struct ServedCall {
    const Connection* connection;
    uint64_t id;  // 0 for a oneway call
    CallerIdentity caller;
    const ServedCall* outer;
};

// Plain data: a thread that calls while the process exits must not find it destroyed.
thread_local const ServedCall* tInnermost = nullptr;

/** The innermost two-way call of the peer that this thread is running, 0 for none. */
uint64_t innermostFrom(const Connection* connection) {
    const ServedCall* call = tInnermost;
    while (call != nullptr && (call->connection != connection || call->id == 0)) {
        call = call->outer;
    }
    return call != nullptr ? call->id : 0;
}

}  // namespace

const CallerIdentity& currentCaller() {
    static constexpr CallerIdentity kNobody;
    return tInnermost != nullptr ? tInnermost->caller : kNobody;
}

/** A two-way call to the peer, on the stack of the thread that waits for the reply. */
struct Connection::PendingCall {
    Parcel* reply;
    bool done = false;
    status_t status = OK;
    std::deque<std::shared_ptr<IncomingCall>> nested;  // to be run on the waiting thread
    bool waiting = false;                              // for `wakeup`
    std::condition_variable wakeup;
};

Connection::Connection(BinderProcess& process, ForkSafeFd socket, const Peer& peer)
    : mProcess(process),
      mId(gNextConnectionId.fetch_add(1)),
      mPeer(peer),
      mWriter(std::make_shared<FrameWriter>(std::move(socket))),
      mFrames(mWriter->fd()) {}

bool Connection::isDead() const {
    return mDead.load() || mWriter->generation() != forkGeneration();
}

bool Connection::noticeDeath() {
    pollfd state = {fd(), POLLRDHUP, 0};
    if (!isDead() && ::poll(&state, 1, 0) > 0) {
        close(nullptr);
    }
    return isDead();
}

void Connection::closeIfDeserted() {
    bool isAwaited = false;
    {
        const Mutex::Autolock lock(mLock);
        isAwaited = !mPending.empty();
    }
    // A caller that waits notices for itself, once it has what the peer still said.
    if (!isAwaited) {
        noticeDeath();
    }
}

// Sending.

status_t Connection::call(uint64_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                          uint32_t flags) {
    if (isDead()) {
        return DEAD_OBJECT;
    }
    FrameHeader header;
    header.type = FrameType::kCall;
    header.target = handle;
    header.code = code;
    header.flags = flags;
    if ((flags & IBinder::FLAG_ONEWAY) != 0) {
        return callOneway(header, data);
    }
    Parcel ignored;
    if (reply != nullptr) {
        reply->freeData();  // here and not under the lock, where the reply will replace it
    }
    PendingCall pending;
    pending.reply = reply != nullptr ? reply : &ignored;
    {
        const Mutex::Autolock lock(mLock);
        if (mDead) {
            return DEAD_OBJECT;
        }
        header.callId = mNextCallId++;
        mPending.emplace(header.callId, &pending);
    }
    header.nestedIn = innermostFrom(this);
    const status_t sent = transmit(header, data);
    if (sent != OK) {
        const Mutex::Autolock lock(mLock);
        mPending.erase(header.callId);
        return sent;
    }
    awaitReply(pending);
    return pending.status;
}

status_t Connection::callOneway(FrameHeader header, const Parcel& data) {
    const size_t cost = onewayCost(data.dataSize());
    {
        const Mutex::Autolock lock(mLock);
        if (mOnewayAhead + cost > kMaxOnewayAhead) {
            return FAILED_TRANSACTION;
        }
        mOnewayAhead += cost;
    }
    const status_t sent = transmit(header, data);
    if (sent != OK) {
        const Mutex::Autolock lock(mLock);
        mOnewayAhead -= cost;
    }
    return sent;
}

/**
 * Sends a parcel under `header`, whose sizes it fills in. FAILED_TRANSACTION sends nothing and
 * holds nothing for the peer.
 */
status_t Connection::transmit(FrameHeader header, const Parcel& parcel) {
    std::vector<WireObject> objects;
    std::vector<int> fds;
    for (const ParcelObject& object : parcel.objects()) {
        if (object.binder == nullptr && object.fd >= 0) {
            fds.push_back(object.fd);
        }
    }
    if (parcel.dataSize() > kMaxTransactionBytes || fds.size() > kMaxFdsPerFrame) {
        return FAILED_TRANSACTION;
    }
    for (const ParcelObject& object : parcel.objects()) {
        WireObject record;
        record.offset = object.offset;
        BpBinder* const proxy = object.binder != nullptr ? object.binder->remoteBinder() : nullptr;
        if (proxy != nullptr && proxy->mConnection.get() == this) {
            record.kind = ObjectKind::kReceivers;
            record.handle = proxy->mHandle;
        } else if (object.binder != nullptr) {
            // A third process's object goes out as one of this process, which passes the calls on.
            record.kind = ObjectKind::kSenders;
            record.handle = mObjects.exportObject(object.binder);
        } else if (object.fd >= 0) {
            record.kind = ObjectKind::kDescriptor;
        }
        objects.push_back(record);
    }
    header.dataSize = static_cast<uint32_t>(parcel.dataSize());
    header.objectCount = static_cast<uint32_t>(objects.size());
    header.fdCount = static_cast<uint32_t>(fds.size());
    const status_t sent = mWriter->send(header, parcel.data(), objects, fds);
    if (sent == DEAD_OBJECT) {
        close(nullptr);
    } else if (sent != OK) {
        for (const WireObject& record : objects) {
            sp<IBinder> dropped;  // never the last reference: the parcel has one
            if (record.kind == ObjectKind::kSenders) {
                mObjects.release(record.handle, 1, &dropped);
            }
        }
    }
    return sent;
}

void Connection::sendReply(uint64_t callId, status_t status, const Parcel& reply) {
    FrameHeader header;
    header.type = FrameType::kReply;
    header.callId = callId;
    header.status = status;
    if (status == OK) {
        header.status = transmit(header, reply);
    }
    if (header.status != OK) {
        transmit(header, Parcel());
    }
}

void Connection::returnProxy(BpBinder* proxy) {
    if (isDead()) {
        return;
    }
    FrameHeader header;
    header.type = FrameType::kRelease;
    header.target = proxy->mHandle;
    header.code = static_cast<uint32_t>(mObjects.forget(proxy));
    // A peer that is gone is left to whoever reads next: this may run below the caller's locks.
    mWriter->send(header);
}

/** Notes that a oneway call of the peer's has been run, and tells the peer once it is worth it. */
void Connection::onewayDone(size_t cost) {
    FrameHeader header;
    header.type = FrameType::kOnewayDone;
    {
        const Mutex::Autolock lock(mLock);
        mOnewayToTell += cost;
        if (mOnewayToTell < kOnewayPortion) {
            return;
        }
        header.code = static_cast<uint32_t>(std::exchange(mOnewayToTell, 0));
    }
    mWriter->send(header);
}

void Connection::run(IncomingCall& incoming) {
    const size_t cost = onewayCost(incoming.request.dataSize());
    Parcel reply;
    const ServedCall served = {
        this, incoming.isOneway() ? 0 : incoming.id, {true, mPeer.pid, mPeer.uid}, tInnermost};
    tInnermost = &served;
    const status_t status =
        incoming.target->transact(incoming.code, incoming.request, &reply, incoming.flags);
    tInnermost = served.outer;
    if (incoming.isOneway()) {
        onewayDone(cost);
    } else {
        sendReply(incoming.id, status, reply);
    }
}

/** Answers a call whose descriptors this process had no room for. */
void Connection::refuse(const IncomingCall& incoming) {
    __android_log_print(ANDROID_LOG_ERROR, "binder",
                        "a call of process %d is refused: too many open files",
                        static_cast<int>(mPeer.pid));
    if (incoming.isOneway()) {
        onewayDone(onewayCost(incoming.request.dataSize()));
    } else {
        sendReply(incoming.id, FAILED_TRANSACTION, Parcel());
    }
}

// Waiting and reading.

void Connection::awaitReply(PendingCall& pending) {
    Mutex::Autolock lock(mLock);
    while (!pending.done) {
        if (!pending.nested.empty()) {
            std::shared_ptr<IncomingCall> nested = std::move(pending.nested.front());
            pending.nested.pop_front();
            lock.unlock();
            run(*nested);
            nested.reset();
            lock.lock();
        } else if (mReading) {
            pending.waiting = true;
            pending.wakeup.wait(lock.native());
            pending.waiting = false;
        } else {
            mReading = true;
            if (mArmed && mProcess.pool().active()) {
                mProcess.pool().disarm(this);
                mArmed = false;
            }
            Jobs jobs;
            while ((!pending.done && pending.nested.empty()) || holdsFrame()) {
                lock.unlock();
                readFrame(true, &jobs);
                for (ThreadPool::Job& job : jobs) {
                    mProcess.pool().post(std::move(job));
                }
                jobs.clear();
                lock.lock();
            }
            handRoleOn();
        }
    }
}

/** Whether a frame is left that the pool would not be woken for. REQUIRES: the reading role. */
bool Connection::holdsFrame() const {
    return !mDead && mFrames.holdsNext();
}

/** Gives the reading role up, once no frame is held. */
void Connection::handRoleOn() {
    mReading = false;
    for (auto& [id, pending] : mPending) {
        if (pending->waiting && pending->nested.empty()) {
            pending->wakeup.notify_one();
            return;
        }
    }
    if (!mArmed && !mDead) {
        mArmed = true;
        mProcess.pool().arm(this);
    }
}

/** Takes the next frame in; without `block`, only if it is there. REQUIRES: the reading role. */
void Connection::readFrame(bool block, Jobs* jobs) {
    Frame frame;
    const FrameReader::Result result = mFrames.next(block, &frame);
    if (result == FrameReader::Result::kClosed) {
        close(nullptr);
    } else if (result == FrameReader::Result::kMalformed ||
               (result == FrameReader::Result::kFrame && !take(frame, jobs))) {
        close("malformed frame");
    }
}

std::vector<ThreadPool::Job> Connection::readAvailable() {
    Jobs jobs;
    {
        const Mutex::Autolock lock(mLock);
        mArmed = false;
        if (mReading || mDead) {
            return jobs;
        }
        mReading = true;
    }
    do {
        readFrame(false, &jobs);
    } while (holdsFrame());
    const Mutex::Autolock lock(mLock);
    handRoleOn();
    return jobs;
}

// Taking frames in. All these require the reading role, and answer false for a malformed frame.

bool Connection::take(Frame& frame, Jobs* jobs) {
    switch (frame.header.type) {
        case FrameType::kCall:
            return takeCall(frame, jobs);
        case FrameType::kReply:
            return takeReply(frame);
        case FrameType::kRelease:
            return takeRelease(frame.header, jobs);
        case FrameType::kOnewayDone:
            return takeOnewayDone(frame.header);
    }
    return false;
}

/**
 * Turns what was sent into what a parcel holds. Objects are resolved at once, in the order of the
 * frames, since a later frame may give up the reference that this one relies on.
 */
bool Connection::unpack(Frame& frame, std::vector<ParcelObject>* objects) {
    size_t fdCount = 0;
    for (const WireObject& record : frame.objects) {
        ParcelObject object;
        object.offset = record.offset;
        switch (record.kind) {
            case ObjectKind::kNull:
                break;
            case ObjectKind::kSenders:
                object.binder = mObjects.receive(shared_from_this(), record.handle);
                break;
            case ObjectKind::kReceivers:
                object.binder = mObjects.exported(record.handle);
                if (object.binder == nullptr) {
                    return false;
                }
                break;
            case ObjectKind::kDescriptor:
                if (frame.fdsLost) {
                    break;
                }
                if (fdCount == frame.fds.size()) {
                    return false;
                }
                object.fd = frame.fds[fdCount++].get();
                break;
            default:
                return false;
        }
        objects->push_back(std::move(object));
    }
    if (fdCount != frame.fds.size()) {
        return false;
    }
    for (UniqueFd& fd : frame.fds) {
        fd.release();  // the parcel's from here on
    }
    return true;
}

bool Connection::takeCall(Frame& frame, Jobs* jobs) {
    const FrameHeader& header = frame.header;
    auto call = std::make_shared<IncomingCall>();
    call->connection = shared_from_this();
    call->id = header.callId;
    call->code = header.code;
    call->flags = header.flags;
    std::vector<ParcelObject> objects;
    if (!unpack(frame, &objects) ||
        call->request.ipcSetData(std::move(frame.data), std::move(objects)) != OK) {
        return false;
    }
    call->target = mObjects.exported(header.target);
    if (call->target == nullptr) {
        return false;
    }
    if (frame.fdsLost) {
        refuse(*call);
        return true;
    }
    if (call->isOneway()) {
        IBinder* const object = call->target.get();
        if (mProcess.pool().queue(object, [call] { call->connection->run(*call); })) {
            jobs->push_back([this, object] { mProcess.pool().runQueued(object); });
        }
        return true;
    }
    {
        const Mutex::Autolock lock(mLock);
        const auto found = mPending.find(header.nestedIn);
        if (found != mPending.end()) {
            found->second->nested.push_back(std::move(call));
            found->second->wakeup.notify_one();
            return true;
        }
    }
    jobs->push_back([call] { call->connection->run(*call); });
    return true;
}

bool Connection::takeReply(Frame& frame) {
    std::vector<ParcelObject> objects;  // what is refused is let go of without the lock
    const Mutex::Autolock lock(mLock);
    const auto found = mPending.find(frame.header.callId);
    if (found == mPending.end() || !unpack(frame, &objects)) {
        return false;
    }
    PendingCall& pending = *found->second;
    pending.status = frame.header.status;
    if (frame.fdsLost) {
        __android_log_print(ANDROID_LOG_ERROR, "binder",
                            "a reply of process %d is lost: too many open files",
                            static_cast<int>(mPeer.pid));
        pending.status = FAILED_TRANSACTION;
    } else if (pending.reply->ipcSetData(std::move(frame.data), std::move(objects)) != OK) {
        return false;
    }
    pending.done = true;
    pending.wakeup.notify_one();
    mPending.erase(found);
    return true;
}

bool Connection::takeRelease(const FrameHeader& header, Jobs* jobs) {
    sp<IBinder> dropped;
    if (!mObjects.release(header.target, header.code, &dropped)) {
        return false;
    }
    if (dropped != nullptr && mProcess.pool().active()) {
        // A destructor may do anything, so the thread that waits for a reply is spared it.
        jobs->push_back([object = std::move(dropped)]() mutable { object.clear(); });
    }
    return true;
}

bool Connection::takeOnewayDone(const FrameHeader& header) {
    const Mutex::Autolock lock(mLock);
    if (header.code > mOnewayAhead) {
        return false;
    }
    mOnewayAhead -= header.code;
    return true;
}

/**
 * Ends the connection, once; a reason is logged. Pending and later calls answer DEAD_OBJECT, what
 * the peer held is let go of, and the death recipients are told.
 */
void Connection::close(const char* reason) {
    {
        const Mutex::Autolock lock(mLock);
        if (mDead.exchange(true)) {
            return;
        }
        for (auto& [id, pending] : mPending) {
            pending->status = DEAD_OBJECT;
            pending->done = true;
            pending->wakeup.notify_one();
        }
        mPending.clear();
    }
    if (reason != nullptr) {
        __android_log_print(ANDROID_LOG_ERROR, "binder", "closing the connection to process %d: %s",
                            static_cast<int>(mPeer.pid), reason);
    }
    const std::shared_ptr<Connection> self = shared_from_this();
    ::shutdown(fd(), SHUT_RDWR);
    mProcess.removeConnection(*this);
    ThreadPool& pool = mProcess.pool();
    std::vector<sp<IBinder>> exports;
    std::vector<sp<BpBinder>> proxies;
    mObjects.close(&exports, &proxies);
    for (const sp<BpBinder>& proxy : proxies) {
        if (proxy->hasDeathRecipients()) {
            pool.post([proxy] { proxy->reportDeath(); });
        }
    }
    if (pool.active()) {
        pool.post([held = std::move(exports)]() mutable { held.clear(); });
    }
}

}  // namespace transport
}  // namespace android
