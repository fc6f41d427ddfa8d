// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include <binder/BpBinder.h>
#include <binder/Parcel.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>

#include "FrameSocket.h"
#include "ObjectTable.h"
#include "ThreadPool.h"

namespace android {
namespace transport {

class BinderProcess;
class Connection;

/** The other end of a connection. */
struct Peer {
    pid_t pid = 0;
    uid_t uid = 0;
    uint64_t instance = 0; /**< random, one for each process image */
};

/** A call from the peer that waits to be run or is being run. */
struct IncomingCall {
    std::shared_ptr<Connection> connection;
    uint64_t id = 0;
    sp<IBinder> target;
    uint32_t code = 0;
    uint32_t flags = 0;
    Parcel request;

    bool isOneway() const { return (flags & IBinder::FLAG_ONEWAY) != 0; }
};

/** Who made the call that a thread is running. */
struct CallerIdentity {
    bool known = false; /**< false: the thread runs no call */
    pid_t pid = 0;
    uid_t uid = 0;
};
const CallerIdentity& currentCaller();

/**
 * The one connection between this process and another, for calls in both directions.
 *
 * There is no thread behind it. Whoever needs something reads: a caller that waits for its reply,
 * or a thread of the pool. One of them at a time has the reading role and delivers what comes,
 * whoever it is for; a thread that has what it wanted, or is about to run a call, first hands the
 * role on, to another waiting caller or to the pool. So a call that blocks never keeps the
 * connection from being read. All operations may be called from any thread.
 */
class Connection : public std::enable_shared_from_this<Connection> {
public:
    /** Use BinderProcess::addConnection, which also has the connection watched. */
    Connection(BinderProcess& process, ForkSafeFd socket, const Peer& peer);

    int fd() const { return mWriter->fd(); }
    uint64_t id() const { return mId; }
    const Peer& peer() const { return mPeer; }
    /** True once the peer is known to be gone, and in a forked child. */
    bool isDead() const;
    /** The same, after a look whether the peer has gone unnoticed, as it may where nobody reads. */
    bool noticeDeath();
    /** Ends the connection if the peer has gone and nobody waits for a reply. */
    void closeIfDeserted();

    /** IBinder::transact on the peer's object `handle`. */
    status_t call(uint64_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                  uint32_t flags);

    /** Runs a call on this thread and sends the reply. */
    void run(IncomingCall& incoming);

    /** Reads what is there, for the pool; the jobs that come of it. */
    std::vector<ThreadPool::Job> readAvailable();

    uint64_t exportObject(const sp<IBinder>& object) { return mObjects.exportObject(object); }
    sp<IBinder> receiveProxy(uint64_t handle) {
        return mObjects.receive(shared_from_this(), handle);
    }
    /** Gives back the references of a proxy that is being destroyed. */
    void returnProxy(BpBinder* proxy);

private:
    struct PendingCall;
    using Jobs = std::vector<ThreadPool::Job>;

    status_t callOneway(FrameHeader header, const Parcel& data);
    status_t transmit(FrameHeader header, const Parcel& parcel);
    void sendReply(uint64_t callId, status_t status, const Parcel& reply);
    void onewayDone(size_t cost);
    void refuse(const IncomingCall& incoming);

    void awaitReply(PendingCall& pending);
    void readFrame(bool block, Jobs* jobs);
    bool holdsFrame() const;
    void handRoleOn() REQUIRES(mLock);

    bool take(Frame& frame, Jobs* jobs);
    bool takeCall(Frame& frame, Jobs* jobs);
    bool takeReply(Frame& frame);
    bool takeRelease(const FrameHeader& header, Jobs* jobs);
    bool takeOnewayDone(const FrameHeader& header);
    bool unpack(Frame& frame, std::vector<ParcelObject>* objects);
    void close(const char* reason);

    BinderProcess& mProcess;
    const uint64_t mId;
    const Peer mPeer;
    const std::shared_ptr<FrameWriter> mWriter;
    FrameReader mFrames;  // belongs to the thread that has the reading role
    ObjectTable mObjects;

    std::atomic<bool> mDead{false};  // written under mLock

    Mutex mLock;
    bool mReading GUARDED_BY(mLock) = false;  // some thread has the reading role
    bool mArmed GUARDED_BY(mLock) = true;     // the pool will be told of the next readiness
    uint64_t mNextCallId GUARDED_BY(mLock) = 1;
    std::unordered_map<uint64_t, PendingCall*> mPending GUARDED_BY(mLock);
    // Bytes of oneway calls that the peer has not dealt with.
    size_t mOnewayAhead GUARDED_BY(mLock) = 0;
    // Bytes of the peer's that are dealt with, and it does not know.
    size_t mOnewayToTell GUARDED_BY(mLock) = 0;
};

}  // namespace transport
}  // namespace android
