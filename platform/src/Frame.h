// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace android {
namespace transport {

// What travels between two processes. Both ends run on one machine, so the records go out as they
// lie in memory.

constexpr uint32_t kFrameMagic = 0x42444531;
constexpr size_t kMaxTransactionBytes = 1024 * 1024;
/** The kernel passes at most this many descriptors with one message. */
constexpr size_t kMaxFdsPerFrame = 253;
/** The smallest room that one object takes up in a parcel. */
constexpr size_t kMinObjectBytes = 24;

// How a service of another process is found: the client connects to the service's socket and is
// greeted; it asks, and is answered. The socket then becomes the connection of the two processes,
// or is closed when they have one.

struct Greeting {
    uint32_t magic = kFrameMagic;
    uint32_t reserved = 0;
    uint64_t instance = 0; /**< of the service's process */
};

enum class Wish : uint32_t {
    kConnect = 1,
    kUseConnection = 2, /**< there is a connection, only the service's handle is wanted */
};

struct Request {
    uint32_t magic = kFrameMagic;
    Wish wish = Wish::kConnect;
    uint64_t instance = 0; /**< of the client's process */
};

enum class Outcome : uint32_t { kGranted = 1, kRetry = 2 };

struct Answer {
    uint32_t magic = kFrameMagic;
    Outcome outcome = Outcome::kRetry;
    uint64_t handle = 0;
};

// Then frames go both ways. A frame is the header, the parcel's bytes, one WireObject for each
// binder or descriptor in them, and the descriptors themselves beside the first byte.

enum class FrameType : uint32_t {
    kCall = 1,
    kReply = 2,
    kRelease = 3,    /**< gives back `code` references to the receiver's handle `target` */
    kOnewayDone = 4, /**< the sender has dealt with `code` bytes of oneway calls */
};

struct FrameHeader {
    uint32_t magic = kFrameMagic;
    FrameType type = FrameType::kCall;
    uint64_t callId = 0;
    uint64_t target = 0;
    /** The receiver's own waiting call on whose behalf this one is made; 0 for none. */
    uint64_t nestedIn = 0;
    uint32_t code = 0;
    uint32_t flags = 0;
    int32_t status = 0;
    uint32_t dataSize = 0;
    uint32_t objectCount = 0;
    uint32_t fdCount = 0;
};
static_assert(sizeof(FrameHeader) == 56, "the frame header has no padding");

enum class ObjectKind : uint32_t {
    kNull = 0,
    kSenders = 1,    /**< `handle` names an object of the sender */
    kReceivers = 2,  /**< `handle` names an object of the receiver, which comes home */
    kDescriptor = 3, /**< the next one of the frame's descriptors */
};

struct WireObject {
    uint64_t offset = 0;
    uint64_t handle = 0;
    ObjectKind kind = ObjectKind::kNull;
    uint32_t reserved = 0;
};
static_assert(sizeof(WireObject) == 24, "the object record has no padding");

}  // namespace transport
}  // namespace android
