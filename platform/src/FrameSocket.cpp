// SPDX-License-Identifier: Apache-2.0
#include "FrameSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <system_error>
#include <thread>

namespace android {
namespace transport {

// Reading.

namespace {

bool isSound(const FrameHeader& header) {
    return header.magic == kFrameMagic && header.dataSize <= kMaxTransactionBytes &&
           header.objectCount <= header.dataSize / kMinObjectBytes &&
           header.fdCount <= std::min<size_t>(header.objectCount, kMaxFdsPerFrame);
}

size_t bodySize(const FrameHeader& header) {
    return header.dataSize + header.objectCount * sizeof(WireObject);
}

}  // namespace

FrameReader::Result FrameReader::next(bool block, Frame* frame) {
    while (mFilled < sizeof(mHeader) + mBody.size()) {
        const bool inHeader = mFilled < sizeof(mHeader);
        uint8_t* const part = inHeader ? reinterpret_cast<uint8_t*>(&mHeader) : mBody.data();
        const size_t size = inHeader ? sizeof(mHeader) : mBody.size();
        const size_t filled = inHeader ? mFilled : mFilled - sizeof(mHeader);
        const Result result = fill(part + filled, size - filled, block);
        if (result != Result::kFrame) {
            return result;
        }
        if (inHeader && mFilled == sizeof(mHeader)) {
            if (!isSound(mHeader)) {
                return Result::kMalformed;
            }
            mBody.resize(bodySize(mHeader));
        }
    }
    if (!takeDescriptors(frame)) {
        return Result::kMalformed;
    }
    frame->header = mHeader;
    frame->objects.resize(mHeader.objectCount);
    if (mHeader.objectCount > 0) {
        std::memcpy(frame->objects.data(), mBody.data() + mHeader.dataSize,
                    mHeader.objectCount * sizeof(WireObject));
    }
    mBody.resize(mHeader.dataSize);
    frame->data = std::exchange(mBody, {});
    mFilled = 0;
    return Result::kFrame;
}

bool FrameReader::holdsNext() const {
    FrameHeader header;
    const size_t held = mAheadEnd - mAheadBegin;
    if (held < sizeof(header)) {
        return false;
    }
    std::memcpy(&header, mAhead.data() + mAheadBegin, sizeof(header));
    return !isSound(header) || held >= sizeof(header) + bodySize(header);
}

/** Hands the descriptors of the frame that is complete over; false if others came with it. */
bool FrameReader::takeDescriptors(Frame* frame) {
    if (mHeader.fdCount > 0) {
        if (mDescriptors.empty()) {
            return false;
        }
        Descriptors& first = mDescriptors.front();
        if (!first.lost && first.fds.size() != mHeader.fdCount) {
            return false;
        }
        frame->fdsLost = first.lost;
        if (!first.lost) {
            frame->fds = std::move(first.fds);
        }
        mDescriptors.pop_front();
    }
    // The kernel ends a read behind a message with descriptors, so what has been read ahead is of
    // one such message at most.
    return mDescriptors.size() <= (mAheadBegin < mAheadEnd ? 1 : 0);
}

/** Takes some of what has been read ahead or, if that is used up, of the socket. */
FrameReader::Result FrameReader::fill(uint8_t* to, size_t size, bool block) {
    if (mAheadBegin == mAheadEnd) {
        return receive(to, size, block);
    }
    const size_t count = std::min(size, mAheadEnd - mAheadBegin);
    std::memcpy(to, mAhead.data() + mAheadBegin, count);
    mAheadBegin += count;
    mFilled += count;
    return Result::kFrame;
}

FrameReader::Result FrameReader::receive(uint8_t* to, size_t size, bool block) {
    iovec parts[] = {{to, size}, {mAhead.data(), mAhead.size()}};
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxFdsPerFrame * sizeof(int))];
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = std::size(parts);
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    ssize_t count;
    do {
        if (block) {
            // A sleep in recvmsg() would end twice for each reply: a first time when the peer has
            // taken the call in and so made room in the socket.
            pollfd waited = {mFd, POLLIN, 0};
            ::poll(&waited, 1, -1);
        }
        count = ::recvmsg(mFd, &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    } while (count < 0 && (errno == EINTR || (errno == EAGAIN && block)));
    if (count < 0) {
        return errno == EAGAIN ? Result::kWouldBlock : Result::kClosed;
    }
    Descriptors received;
    for (cmsghdr* item = CMSG_FIRSTHDR(&message); item != nullptr;
         item = CMSG_NXTHDR(&message, item)) {
        if (item->cmsg_level == SOL_SOCKET && item->cmsg_type == SCM_RIGHTS) {
            const size_t fdCount = (item->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (size_t i = 0; i < fdCount; ++i) {
                int fd;
                std::memcpy(&fd, CMSG_DATA(item) + i * sizeof(int), sizeof(fd));
                received.fds.emplace_back(fd);
            }
        }
    }
    // Cut off when this process may open no more descriptors. The bytes are all there, so only
    // this one frame is in vain.
    received.lost = (message.msg_flags & MSG_CTRUNC) != 0;
    if (received.lost || !received.fds.empty()) {
        mDescriptors.push_back(std::move(received));
    }
    const size_t taken = std::min(static_cast<size_t>(count), size);
    mFilled += taken;
    mAheadBegin = 0;
    mAheadEnd = static_cast<size_t>(count) - taken;
    return count == 0                ? Result::kClosed
           : mDescriptors.size() > 2 ? Result::kMalformed  // more than this frame's and the next's
                                     : Result::kFrame;
}

// Writing.

/** Sends what the socket takes at once; the count, or -1 with errno. */
ssize_t FrameWriter::sendSome(const Rest& rest, const std::vector<int>& fds) const {
    iovec part = {const_cast<uint8_t*>(rest.bytes.data()) + rest.sent,
                  rest.bytes.size() - rest.sent};
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxFdsPerFrame * sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!fds.empty() && rest.sent == 0) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(fds.size() * sizeof(int));
        cmsghdr* item = CMSG_FIRSTHDR(&message);
        item->cmsg_level = SOL_SOCKET;
        item->cmsg_type = SCM_RIGHTS;
        item->cmsg_len = CMSG_LEN(fds.size() * sizeof(int));
        std::memcpy(CMSG_DATA(item), fds.data(), fds.size() * sizeof(int));
    }
    ssize_t count;
    do {
        count = ::sendmsg(fd(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (count < 0 && errno == EINTR);
    return count;
}

status_t FrameWriter::send(const FrameHeader& header, const uint8_t* data,
                           const std::vector<WireObject>& objects, const std::vector<int>& fds) {
    Rest rest;
    const auto append = [&rest](const void* bytes, size_t size) {
        const auto* const first = static_cast<const uint8_t*>(bytes);
        rest.bytes.insert(rest.bytes.end(), first, first + size);
    };
    rest.bytes.reserve(sizeof(header) + header.dataSize + objects.size() * sizeof(WireObject));
    append(&header, sizeof(header));
    append(data, header.dataSize);
    append(objects.data(), objects.size() * sizeof(WireObject));

    const Mutex::Autolock lock(mLock);
    if (mGone) {
        return DEAD_OBJECT;
    }
    if (mRests.empty()) {
        const ssize_t count = sendSome(rest, fds);
        if (count < 0 && errno != EAGAIN) {
            // Some errors concern the one message only.
            mGone = errno != EBADF && errno != ETOOMANYREFS && errno != ENOBUFS &&
                    errno != ENOMEM && errno != EINVAL;
            return mGone ? DEAD_OBJECT : FAILED_TRANSACTION;
        }
        rest.sent = count > 0 ? static_cast<size_t>(count) : 0;
        if (rest.sent == rest.bytes.size()) {
            return OK;
        }
    }
    for (size_t i = 0; rest.sent == 0 && i < fds.size(); ++i) {
        rest.fds.emplace_back(::fcntl(fds[i], F_DUPFD_CLOEXEC, 0));
        if (!rest.fds.back().ok()) {
            return FAILED_TRANSACTION;
        }
    }
    mRests.push_back(std::move(rest));
    if (mRests.size() == 1) {
        startFlushing();
    }
    return OK;
}

void FrameWriter::startFlushing() {
    try {
        std::thread([self = shared_from_this()] { self->flush(); }).detach();
    } catch (const std::system_error&) {
        giveUp();
    }
}

/** The peer cannot be served any more. */
void FrameWriter::giveUp() {
    mRests.clear();
    mGone = true;
    ::shutdown(fd(), SHUT_RDWR);
}

void FrameWriter::flush() {
    for (;;) {
        pollfd waited = {fd(), POLLOUT, 0};
        ::poll(&waited, 1, -1);
        const Mutex::Autolock lock(mLock);
        Rest& rest = mRests.front();
        std::vector<int> fds;
        for (const UniqueFd& fd : rest.fds) {
            fds.push_back(fd.get());
        }
        const ssize_t count = sendSome(rest, fds);
        if (count < 0 && errno != EAGAIN) {
            return giveUp();
        }
        rest.sent += count > 0 ? static_cast<size_t>(count) : 0;
        if (rest.sent == rest.bytes.size()) {
            mRests.pop_front();
        }
        if (mRests.empty()) {
            return;
        }
    }
}

}  // namespace transport
}  // namespace android
