// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <array>
#include <deque>
#include <memory>
#include <vector>

#include <utils/Errors.h>
#include <utils/Mutex.h>

#include "Frame.h"
#include "UniqueFd.h"

namespace android {
namespace transport {

/** A frame as it was received. */
struct Frame {
    FrameHeader header;
    std::vector<uint8_t> data;
    std::vector<WireObject> objects;
    std::vector<UniqueFd> fds;
    /** This process could not open all the descriptors, so it has been given none. */
    bool fdsLost = false;
};

/**
 * Cuts the byte stream of a socket into frames. It reads a little ahead, so that a small frame
 * takes one call of the kernel. Used by one thread at a time.
 */
class FrameReader {
public:
    enum class Result {
        kFrame,      /**< a whole frame is there */
        kWouldBlock, /**< nothing more to read at the moment */
        kClosed,     /**< end of the stream, or an error of the socket */
        kMalformed,  /**< the peer does not keep to the format */
    };

    explicit FrameReader(int fd) : mFd(fd) {}

    /**
     * Delivers the next frame. Without `block` it never waits; what has come of a frame is kept.
     */
    Result next(bool block, Frame* frame);

    /** Whether the next frame has been read ahead, so that the socket does not announce it. */
    bool holdsNext() const;

private:
    /** The descriptors of one message, which are those of one frame. */
    struct Descriptors {
        std::vector<UniqueFd> fds;
        bool lost = false;
    };

    Result fill(uint8_t* to, size_t size, bool block);
    Result receive(uint8_t* to, size_t size, bool block);
    bool takeDescriptors(Frame* frame);

    const int mFd;
    // The frame that is being received; its body is the parcel and the object records.
    FrameHeader mHeader;
    std::vector<uint8_t> mBody;
    size_t mFilled = 0;  // bytes of header and body
    // What was read beyond its end, and the descriptors that came with all this.
    std::array<uint8_t, 512> mAhead;
    size_t mAheadBegin = 0;
    size_t mAheadEnd = 0;
    std::deque<Descriptors> mDescriptors;
};

/**
 * Writes frames to a socket, whole and in order, from any thread and without ever waiting for the
 * peer to read: what the socket does not take is kept and sent by a thread that lives as long as
 * there is such a rest.
 */
class FrameWriter : public std::enable_shared_from_this<FrameWriter> {
public:
    explicit FrameWriter(ForkSafeFd socket) : mSocket(std::move(socket)) {}

    int fd() const { return mSocket.get(); }
    uint32_t generation() const { return mSocket.generation(); }

    /**
     * OK once the frame is on its way. DEAD_OBJECT: the peer is gone. FAILED_TRANSACTION: the
     * kernel refused this frame, of which nothing was sent. The descriptors stay the caller's.
     */
    status_t send(const FrameHeader& header, const uint8_t* data = nullptr,
                  const std::vector<WireObject>& objects = {}, const std::vector<int>& fds = {});

private:
    /** Bytes that wait for room in the socket, and the descriptors that go with their first. */
    struct Rest {
        std::vector<uint8_t> bytes;
        size_t sent = 0;
        std::vector<UniqueFd> fds;
    };

    ssize_t sendSome(const Rest& rest, const std::vector<int>& fds) const;
    void startFlushing() REQUIRES(mLock);
    void flush();
    void giveUp() REQUIRES(mLock);

    const ForkSafeFd mSocket;
    Mutex mLock;
    std::deque<Rest> mRests GUARDED_BY(mLock);
    bool mGone GUARDED_BY(mLock) = false;
};

}  // namespace transport
}  // namespace android
