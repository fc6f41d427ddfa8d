// SPDX-License-Identifier: Apache-2.0
// What travels between two processes. Both ends run on one machine, so the records go out as they
// lie in memory. A frame is one message of a SOCK_SEQPACKET socket: the kernel keeps it whole,
// together with its descriptors.
#pragma once

#include <memory>
#include <vector>

#include <utils/Errors.h>

#include "UniqueFd.h"

namespace android::transport {

constexpr uint32_t kFrameMagic = 0x42444532;
constexpr size_t kMaxTransactionBytes = 1024 * 1024;
/** The kernel passes at most this many descriptors with one message. */
constexpr size_t kMaxFdsPerFrame = 253;
/** A larger body, up to the limit of a transaction, travels in a memfd. */
constexpr size_t kMaxInlineBytes = 64 * 1024;
/** The smallest room that one object takes up in a parcel. */
constexpr size_t kMinObjectBytes = 24;

enum class FrameType : uint32_t {
    kCall = 1,
    kReply = 2,
    kRelease = 3,  /**< gives back `code` references to the receiver's object `handle` */
    kCallLine = 4, /**< its one descriptor is the service's end of a new call line */
};

/** Followed by the body: one WireObject for each object of the parcel, and the parcel's bytes. */
struct FrameHeader {
    uint32_t magic = kFrameMagic;
    FrameType type = FrameType::kCall;
    uint64_t handle = 0; /**< of a call: the receiver's object */
    uint32_t code = 0;
    uint32_t flags = 0;
    int32_t status = 0;
    uint32_t dataSize = 0;
    uint32_t objectCount = 0;
    uint32_t fdCount = 0; /**< without that of the body's memory */
};
static_assert(sizeof(FrameHeader) == 40, "the frame header has no padding");

enum class ObjectKind : uint32_t {
    kSenders = 1,    /**< `handle` names an object of the sender, which is sent once more */
    kReceivers = 2,  /**< `handle` names an object of the receiver, which comes home */
    kDescriptor = 3, /**< the next one of the frame's descriptors */
};

struct WireObject {
    uint64_t offset = 0;
    uint64_t handle = 0;
    ObjectKind kind = ObjectKind::kDescriptor;
    uint32_t reserved = 0;
};
static_assert(sizeof(WireObject) == 24, "the object record has no padding");

/** A frame to be sent. */
struct OutgoingFrame {
    FrameHeader header;              /**< with dataSize; the other sizes are filled in */
    std::vector<WireObject> records; /**< of the objects */
    const uint8_t* data = nullptr;   /**< the parcel's bytes */
    std::vector<int> fds;            /**< stay their owner's */

    /**
     * Sends all of it or nothing, and never waits. DEAD_OBJECT: the other end is closed.
     * FAILED_TRANSACTION: over a limit, the socket is full, or the kernel refused it.
     */
    status_t send(int socket);
};

/** The room for a socket's incoming frames, so that receiving one allocates nothing. */
constexpr size_t kFrameBufferBytes = sizeof(FrameHeader) + kMaxInlineBytes;
using FrameBuffer = std::unique_ptr<uint8_t[]>;

/** A received frame, valid until its buffer takes the next one. It owns the descriptors. */
class IncomingFrame {
public:
    explicit IncomingFrame(const FrameBuffer& buffer) : mBuffer(buffer.get()) {}
    IncomingFrame(const IncomingFrame&) = delete;
    ~IncomingFrame() { closeFds(); }

    FrameHeader header;
    bool fdsLost = false; /**< This process could not open all descriptors, and was given none. */

    /**
     * Waits for a frame and takes it, at most once; `flags` are those of recvmsg(). DEAD_OBJECT:
     * the other end is closed. BAD_VALUE: what came is no frame, or its sizes do not add up.
     */
    status_t receive(int socket, int flags = 0);
    /** Copies a part of the body; false when the peer has not provided it. */
    bool readBody(size_t offset, void* to, size_t size) const;
    /** One of header.fdCount descriptors, still the frame's. */
    int fd(size_t index) const { return mFds[index]; }
    /** Hands all of them over. */
    void releaseFds() { mFdCount = 0; }
    void closeFds();

private:
    bool isSound(size_t size);

    uint8_t* const mBuffer;
    UniqueFd mMemory; /**< of a body that is not in the buffer */
    size_t mFdCount = 0;
    int mFds[kMaxFdsPerFrame];
};

/** The monotonic clock. */
int64_t nowMs();
/** Waits for an event of a descriptor, until that time or, with a negative one, for good. */
bool waitForEvent(int fd, short event, int64_t deadlineMs);

}  // namespace android::transport
