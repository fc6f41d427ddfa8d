#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "UniqueFd.h"

namespace android {
namespace transport {

// What travels between two processes. A frame is the header, the parcel's bytes, one WireObject for
// each binder or descriptor in them, and the descriptors themselves beside the first byte. Both
// ends run on one machine, so the records go out as they lie in memory.

constexpr uint32_t kFrameMagic = 0x42444531;
constexpr size_t kMaxTransactionBytes = 1024 * 1024;
/// The kernel passes at most this many descriptors with one message.
constexpr size_t kMaxFdsPerFrame = 253;
/// The smallest room that one object takes up in a parcel.
constexpr size_t kMinObjectBytes = 24;

enum class FrameType : uint32_t {
    kCall = 1,
    kReply = 2,
    /// Gives references back: `target` is the receiver's handle, `code` how many.
    kRelease = 3,
    /// The sender has dealt with `code` bytes of oneway calls.
    kOnewayDone = 4,
};

struct FrameHeader {
    uint32_t magic = kFrameMagic;
    FrameType type = FrameType::kCall;
    uint64_t callId = 0;
    uint64_t target = 0;
    /// The receiver's own call, waiting for its reply, on whose behalf this one is made; 0 for
    /// none.
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
    /// `handle` names an object of the sender.
    kSenders = 1,
    /// `handle` names an object of the receiver, which comes home.
    kReceivers = 2,
    /// The next one of the frame's descriptors.
    kDescriptor = 3,
};

struct WireObject {
    uint64_t offset = 0;
    uint64_t handle = 0;
    ObjectKind kind = ObjectKind::kNull;
    uint32_t reserved = 0;
};
static_assert(sizeof(WireObject) == 24, "the object record has no padding");

/// A frame as it was received.
struct Frame {
    FrameHeader header;
    std::vector<uint8_t> data;
    std::vector<WireObject> objects;
    std::vector<UniqueFd> fds;
};

}  // namespace transport
}  // namespace android
