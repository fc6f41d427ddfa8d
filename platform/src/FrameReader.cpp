#include "FrameReader.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace android {
namespace transport {

FrameReader::Result FrameReader::next(bool block, Frame* frame) {
    if (!mInBody) {
        while (mEnd - mBegin < sizeof(FrameHeader)) {
            const Result result = fill(block);
            if (result != Result::kFrame) {
                return result;
            }
        }
        moveFromBuffer(reinterpret_cast<uint8_t*>(&mHeader), sizeof(mHeader));
        if (!headerIsSound()) {
            return Result::kMalformed;
        }
        mBody.resize(mHeader.dataSize + mHeader.objectCount * sizeof(WireObject));
        mBodyFilled = std::min(mBody.size(), mEnd - mBegin);
        moveFromBuffer(mBody.data(), mBodyFilled);
        mInBody = true;
    }
    // What the buffer did not hold goes straight into the body, and stops at its end.
    while (mBodyFilled < mBody.size()) {
        size_t received = 0;
        const Result result =
            receive(mBody.data() + mBodyFilled, mBody.size() - mBodyFilled, block, &received);
        if (result != Result::kFrame) {
            return result;
        }
        mBodyFilled += received;
    }
    mInBody = false;
    frame->header = mHeader;
    frame->objects.resize(mHeader.objectCount);
    if (mHeader.objectCount > 0) {
        std::memcpy(frame->objects.data(), mBody.data() + mHeader.dataSize,
                    mHeader.objectCount * sizeof(WireObject));
    }
    mBody.resize(mHeader.dataSize);
    frame->data = std::move(mBody);
    mBody.clear();
    return takeFds(frame) ? Result::kFrame : Result::kMalformed;
}

bool FrameReader::headerIsSound() const {
    return mHeader.magic == kFrameMagic && mHeader.dataSize <= kMaxTransactionBytes &&
           mHeader.objectCount <= mHeader.dataSize / kMinObjectBytes &&
           mHeader.fdCount <= std::min<size_t>(mHeader.objectCount, kMaxFdsPerFrame);
}

bool FrameReader::takeFds(Frame* frame) {
    frame->fds.clear();
    if (mFds.size() < mHeader.fdCount) {
        return false;
    }
    for (uint32_t i = 0; i < mHeader.fdCount; ++i) {
        frame->fds.push_back(std::move(mFds.front()));
        mFds.pop_front();
    }
    // Descriptors come with their frame's first byte: any left over belong to no frame.
    return hasBuffered() || mFds.empty();
}

FrameReader::Result FrameReader::fill(bool block) {
    std::copy(mBuffer.begin() + static_cast<ptrdiff_t>(mBegin),
              mBuffer.begin() + static_cast<ptrdiff_t>(mEnd), mBuffer.begin());
    mEnd -= mBegin;
    mBegin = 0;
    size_t received = 0;
    const Result result = receive(mBuffer.data() + mEnd, mBuffer.size() - mEnd, block, &received);
    mEnd += received;
    return result;
}

void FrameReader::moveFromBuffer(uint8_t* to, size_t size) {
    if (size > 0) {
        std::memcpy(to, mBuffer.data() + mBegin, size);
        mBegin += size;
    }
}

FrameReader::Result FrameReader::receive(uint8_t* to, size_t size, bool block, size_t* received) {
    iovec part = {to, size};
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxFdsPerFrame * sizeof(int))];
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);

    ssize_t count;
    do {
        count = ::recvmsg(mFd, &message, MSG_CMSG_CLOEXEC | (block ? 0 : MSG_DONTWAIT));
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        return errno == EAGAIN || errno == EWOULDBLOCK ? Result::kWouldBlock : Result::kClosed;
    }
    for (cmsghdr* item = CMSG_FIRSTHDR(&message); item != nullptr;
         item = CMSG_NXTHDR(&message, item)) {
        if (item->cmsg_level != SOL_SOCKET || item->cmsg_type != SCM_RIGHTS) {
            continue;
        }
        const size_t fdCount = (item->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < fdCount; ++i) {
            int fd;
            std::memcpy(&fd, CMSG_DATA(item) + i * sizeof(int), sizeof(fd));
            mFds.emplace_back(fd);
        }
    }
    if (count == 0) {
        return Result::kClosed;
    }
    // Cut off when this process may open no more descriptors: the frame can no longer be whole.
    if ((message.msg_flags & MSG_CTRUNC) != 0) {
        return Result::kMalformed;
    }
    *received = static_cast<size_t>(count);
    return Result::kFrame;
}

}  // namespace transport
}  // namespace android
