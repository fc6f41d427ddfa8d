// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <condition_variable>
#include <functional>

#include <android/log.h>

#include "Frame.h"
#include "ObjectTable.h"

namespace android::transport {

class BinderProcess;

/** Starts a thread that nobody joins; false, with a log line, when there can be none. */
bool startThread(std::function<void()> body);

/** The process whose call this thread is running; null outside of a call. */
const ucred* currentCaller();

/**
 * What connects a client process to one service of another process. All operations may be called
 * from any thread.
 *
 * The main line is the socket that the client has connected. It carries, in both directions, oneway
 * calls and references given back, in the order in which they were sent, and to the service new
 * call lines. One thread reads it, and runs the oneway calls one at a time: a slow one delays what
 * comes behind it, the notice of the peer's death as well. At the client this thread is started
 * with the thread pool; without a pool, whoever finds the session ended does what there is to do.
 *
 * A call line is used by one caller at a time, which sends its call and itself receives the reply.
 * At the service a thread for each line runs the calls. The end of a call line is the end of that
 * line only; the end of the main line ends the session.
 */
class Session : public std::enable_shared_from_this<Session> {
public:
    /** `service` is null at the client's end. */
    Session(BinderProcess& process, ForkSafeFd mainLine, const ucred& peer,
            const sp<IBinder>& service);

    /** Starts the thread of the main line, if there is none. */
    void startReading();
    /** True once the peer is known to be gone, and in a forked child. */
    bool isDead() const { return mIsDead || mGeneration != forkGeneration(); }
    /** The same, after a look at the main line, which may end until then; 0 for now. */
    bool findEnd(int64_t deadlineMs);

    /** The proxy of the service itself; for the client. */
    sp<IBinder> serviceProxy() { return mObjects.receive(shared_from_this(), kServiceHandle); }
    /** IBinder::transact on the peer's object `handle`. */
    status_t call(uint64_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                  uint32_t flags);
    /** Gives back the references of a proxy that is being destroyed. */
    void giveBack(BpBinder* proxy);

private:
    struct Line {
        ForkSafeFd socket;
        FrameBuffer buffer{new uint8_t[kFrameBufferBytes]};
    };
    /** Call lines of a session, and of these the ones that a client keeps without using them. */
    static constexpr size_t kMaxLines = 64;
    static constexpr size_t kMaxIdleLines = 16;

    static constexpr char kMalformed[] = "malformed frame";

    // Calls to the peer.
    status_t takeLine(std::shared_ptr<Line>* line);
    void putLine(const std::shared_ptr<Line>& line, bool isUsable);
    status_t exchange(const Line& line, const FrameHeader& header, const Parcel& data,
                      Parcel* reply, bool* isReplied);
    status_t sendParcel(const Line& line, const FrameHeader& header, const Parcel& parcel);

    // Frames from the peer. False for one that does not add up, or at the end.
    void readMainLine();
    bool readFrame();
    bool takeFrame(IncomingFrame& frame, ForkSafeFd callLine);
    void addLine(ForkSafeFd socket);
    void serveLine(const std::shared_ptr<Line>& line);
    bool serveCall(const Line& line, std::vector<sp<IBinder>>* sentHome);
    bool runCall(IncomingFrame& frame, Parcel* reply, status_t* status);
    bool unpack(IncomingFrame& frame, Parcel* parcel, status_t* status);

    void end(const char* reason);
    /** `format` takes the peer's number, and the reason. */
    void log(const char* format, const char* reason) const __attribute__((format(printf, 2, 0)));

    BinderProcess& mProcess;
    const uint32_t mGeneration = forkGeneration();
    const Line mMainLine;
    const ucred mPeer;
    const bool mIsService;
    ObjectTable mObjects;

    std::atomic<bool> mIsDead{false};  // set under mLock
    Mutex mLock;
    bool mIsRead GUARDED_BY(mLock) = false;  // the main line has its thread
    bool mHasEnded GUARDED_BY(mLock) = false;
    std::vector<std::shared_ptr<Line>> mLines GUARDED_BY(mLock);  // all that are open
    std::vector<std::shared_ptr<Line>> mIdle GUARDED_BY(mLock);
    std::condition_variable mLineReturned;
};

}  // namespace android::transport
