#include "FrameWriter.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>

namespace android {
namespace transport {
namespace {

/// Sends what the socket takes at once; the count, or -1 with errno.
ssize_t sendSome(int socket, iovec* parts, size_t partCount, const int* fds, size_t fdCount) {
    alignas(cmsghdr) char control[CMSG_SPACE(kMaxFdsPerFrame * sizeof(int))];
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = partCount;
    if (fdCount > 0) {
        std::memset(control, 0, CMSG_SPACE(fdCount * sizeof(int)));
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(fdCount * sizeof(int));
        cmsghdr* item = CMSG_FIRSTHDR(&message);
        item->cmsg_level = SOL_SOCKET;
        item->cmsg_type = SCM_RIGHTS;
        item->cmsg_len = CMSG_LEN(fdCount * sizeof(int));
        std::memcpy(CMSG_DATA(item), fds, fdCount * sizeof(int));
    }
    ssize_t count;
    do {
        count = ::sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (count < 0 && errno == EINTR);
    return count;
}

bool isWouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK;
}

/// True for an error that concerns the one message only.
bool concernsMessage(int error) {
    return error == EBADF || error == ETOOMANYREFS || error == ENOBUFS || error == ENOMEM ||
           error == EINVAL;
}

std::vector<uint8_t> join(const FrameHeader& header, const uint8_t* data,
                          const std::vector<WireObject>& objects) {
    const size_t objectBytes = objects.size() * sizeof(WireObject);
    std::vector<uint8_t> bytes(sizeof(header) + header.dataSize + objectBytes);
    std::memcpy(bytes.data(), &header, sizeof(header));
    if (header.dataSize > 0) {
        std::memcpy(bytes.data() + sizeof(header), data, header.dataSize);
    }
    if (objectBytes > 0) {
        std::memcpy(bytes.data() + sizeof(header) + header.dataSize, objects.data(), objectBytes);
    }
    return bytes;
}

}  // namespace

status_t FrameWriter::send(const FrameHeader& header, const uint8_t* data,
                           const std::vector<WireObject>& objects, const std::vector<int>& fds) {
    const std::lock_guard<std::mutex> lock(mLock);
    if (mGone) {
        return DEAD_OBJECT;
    }
    size_t sent = 0;
    if (mRests.empty()) {
        iovec parts[3] = {
            {const_cast<FrameHeader*>(&header), sizeof(header)},
            {const_cast<uint8_t*>(data), header.dataSize},
            {const_cast<WireObject*>(objects.data()), objects.size() * sizeof(WireObject)}};
        const ssize_t count = sendSome(fd(), parts, 3, fds.data(), fds.size());
        if (count < 0 && !isWouldBlock(errno)) {
            mGone = !concernsMessage(errno);
            return mGone ? DEAD_OBJECT : FAILED_TRANSACTION;
        }
        sent = count > 0 ? static_cast<size_t>(count) : 0;
        if (sent == sizeof(header) + header.dataSize + objects.size() * sizeof(WireObject)) {
            return OK;
        }
    }
    Rest rest;
    rest.sent = sent;
    for (size_t i = 0; sent == 0 && i < fds.size(); ++i) {
        rest.fds.emplace_back(::fcntl(fds[i], F_DUPFD_CLOEXEC, 0));
        if (!rest.fds.back().ok()) {
            return FAILED_TRANSACTION;
        }
    }
    rest.bytes = join(header, data, objects);
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
        // Without a thread the peer cannot be served any more.
        mRests.clear();
        mGone = true;
        ::shutdown(fd(), SHUT_RDWR);
    }
}

void FrameWriter::flush() {
    for (;;) {
        pollfd waited = {fd(), POLLOUT, 0};
        ::poll(&waited, 1, -1);
        const std::lock_guard<std::mutex> lock(mLock);
        if (!sendRests()) {
            mRests.clear();
            mGone = true;
            ::shutdown(fd(), SHUT_RDWR);
        }
        if (mRests.empty()) {
            return;
        }
    }
}

/// Sends as much as the socket takes; false when it takes nothing any more.
bool FrameWriter::sendRests() {
    while (!mRests.empty()) {
        Rest& rest = mRests.front();
        iovec part = {rest.bytes.data() + rest.sent, rest.bytes.size() - rest.sent};
        std::vector<int> fds;
        for (const UniqueFd& fd : rest.fds) {
            fds.push_back(fd.get());
        }
        const ssize_t count = sendSome(fd(), &part, 1, fds.data(), fds.size());
        if (count < 0) {
            return isWouldBlock(errno);
        }
        rest.fds.clear();
        rest.sent += static_cast<size_t>(count);
        if (rest.sent == rest.bytes.size()) {
            mRests.pop_front();
        }
    }
    return true;
}

}  // namespace transport
}  // namespace android
