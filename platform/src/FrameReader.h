#pragma once

#include <array>
#include <cstddef>
#include <deque>

#include "Frame.h"

namespace android {
namespace transport {

/// Cuts the byte stream of a socket into frames. Used by one thread at a time.
class FrameReader {
public:
    enum class Result {
        kFrame,       ///< a whole frame is there
        kWouldBlock,  ///< nothing more to read at the moment
        kClosed,      ///< end of the stream, or an error of the socket
        kMalformed,   ///< the peer does not keep to the format
    };

    explicit FrameReader(int fd) : mFd(fd) {}

    /// Delivers the next frame, buffered or from the socket. Without `block` it never waits.
    Result next(bool block, Frame* frame);

    /// True while bytes are buffered that a readiness notice of the socket will not tell of.
    bool hasBuffered() const { return mEnd > mBegin; }

private:
    Result fill(bool block);
    Result receive(uint8_t* to, size_t size, bool block, size_t* received);
    bool headerIsSound() const;
    bool takeFds(Frame* frame);
    void moveFromBuffer(uint8_t* to, size_t size);

    const int mFd;

    std::array<uint8_t, 16 * 1024> mBuffer;
    size_t mBegin = 0;
    size_t mEnd = 0;
    std::deque<UniqueFd> mFds;

    // The frame that is being received: its header once known, then parcel and object records.
    bool mInBody = false;
    FrameHeader mHeader;
    std::vector<uint8_t> mBody;
    size_t mBodyFilled = 0;
};

}  // namespace transport
}  // namespace android
