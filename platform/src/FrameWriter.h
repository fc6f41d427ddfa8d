#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <vector>

#include <utils/Errors.h>

#include "ForkSafeFd.h"
#include "Frame.h"

namespace android {
namespace transport {

/// Writes frames to a socket, whole and in order, from any thread and without ever waiting for the
/// peer to read: what the socket does not take is kept and sent by a thread that lives as long as
/// there is such a rest.
class FrameWriter : public std::enable_shared_from_this<FrameWriter> {
public:
    explicit FrameWriter(ForkSafeFd socket) : mSocket(std::move(socket)) {}

    int fd() const { return mSocket.get(); }
    uint32_t generation() const { return mSocket.generation(); }

    /// OK once the frame is on its way. DEAD_OBJECT: the peer is gone. FAILED_TRANSACTION: the
    /// kernel refused this frame, of which nothing was sent. The descriptors stay the caller's.
    status_t send(const FrameHeader& header, const uint8_t* data,
                  const std::vector<WireObject>& objects, const std::vector<int>& fds);

private:
    /// Bytes that wait for room in the socket, and the descriptors that go with their first.
    struct Rest {
        std::vector<uint8_t> bytes;
        size_t sent = 0;
        std::vector<UniqueFd> fds;
    };

    void startFlushing();
    void flush();
    bool sendRests();

    const ForkSafeFd mSocket;

    std::mutex mLock;
    std::deque<Rest> mRests;  // guarded by mLock
    bool mGone = false;       // guarded by mLock
};

}  // namespace transport
}  // namespace android
