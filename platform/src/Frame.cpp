// SPDX-License-Identifier: Apache-2.0
#include "Frame.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace android::transport {
namespace {

constexpr size_t kControlBytes = CMSG_SPACE(kMaxFdsPerFrame * sizeof(int));

size_t recordBytes(const FrameHeader& header) {
    return header.objectCount * sizeof(WireObject);
}

size_t bodyBytes(const FrameHeader& header) {
    return recordBytes(header) + header.dataSize;
}

}  // namespace

status_t OutgoingFrame::send(int socket) {
    header.objectCount = static_cast<uint32_t>(records.size());
    header.fdCount = static_cast<uint32_t>(fds.size());
    const bool isLarge = bodyBytes(header) > kMaxInlineBytes;
    if (header.dataSize > kMaxTransactionBytes || fds.size() + isLarge > kMaxFdsPerFrame) {
        return FAILED_TRANSACTION;
    }
    iovec parts[] = {{&header, sizeof(header)},
                     {records.data(), recordBytes(header)},
                     {const_cast<uint8_t*>(data), header.dataSize}};
    UniqueFd memory;
    if (isLarge) {
        memory = UniqueFd(::memfd_create("transaction", MFD_CLOEXEC));
        if (::writev(memory.get(), parts + 1, 2) != static_cast<ssize_t>(bodyBytes(header))) {
            return FAILED_TRANSACTION;
        }
        fds.push_back(memory.get());
    }
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = isLarge ? 1 : 3;
    alignas(cmsghdr) char control[kControlBytes];
    if (!fds.empty()) {
        const size_t size = fds.size() * sizeof(int);
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(size);
        cmsghdr* const item = CMSG_FIRSTHDR(&message);
        *item = {CMSG_LEN(size), SOL_SOCKET, SCM_RIGHTS};
        std::memcpy(CMSG_DATA(item), fds.data(), size);
    }
    ssize_t sent;
    do {
        sent = ::sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    const bool isClosed = errno == EPIPE || errno == ECONNRESET || errno == ENOTCONN;
    return sent >= 0 ? status_t{OK} : isClosed ? status_t{DEAD_OBJECT} : FAILED_TRANSACTION;
}

status_t IncomingFrame::receive(int socket, int flags) {
    iovec part = {mBuffer, kFrameBufferBytes};
    alignas(cmsghdr) char control[kControlBytes];
    msghdr message = {};
    ssize_t size;
    do {
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        size = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC | flags);
        // A peer that ended with something unread is told of first, before what it still said.
    } while (size < 0 && (errno == EINTR || errno == ECONNRESET));
    if (size <= 0) {
        return DEAD_OBJECT;
    }
    const cmsghdr* const item = CMSG_FIRSTHDR(&message);
    if (item != nullptr && item->cmsg_level == SOL_SOCKET && item->cmsg_type == SCM_RIGHTS) {
        mFdCount = (item->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        std::memcpy(mFds, CMSG_DATA(item), mFdCount * sizeof(int));
    }
    if ((message.msg_flags & MSG_CTRUNC) != 0) {
        fdsLost = true;
        closeFds();
    }
    const bool isWhole = (message.msg_flags & MSG_TRUNC) == 0;
    return isWhole && isSound(static_cast<size_t>(size)) ? status_t{OK} : BAD_VALUE;
}

/** Whether a message of that size is a frame; takes its memory from among its descriptors. */
bool IncomingFrame::isSound(size_t size) {
    if (size < sizeof(header)) {
        return false;
    }
    std::memcpy(&header, mBuffer, sizeof(header));
    const bool isLarge = bodyBytes(header) > kMaxInlineBytes;
    if (header.magic != kFrameMagic || header.dataSize > kMaxTransactionBytes ||
        header.objectCount > header.dataSize / kMinObjectBytes ||
        size != sizeof(header) + (isLarge ? 0 : bodyBytes(header))) {
        return false;
    }
    if (isLarge && mFdCount > 0) {
        mMemory = UniqueFd(mFds[--mFdCount]);
    }
    // Seals tell memory from a file that might keep the reader waiting.
    const bool hasMemory = mMemory.ok() && ::fcntl(mMemory.get(), F_GET_SEALS) >= 0;
    return fdsLost || (mFdCount == header.fdCount && hasMemory == isLarge);
}

bool IncomingFrame::readBody(size_t offset, void* to, size_t size) const {
    if (mMemory.ok()) {
        return ::pread(mMemory.get(), to, size, static_cast<off_t>(offset)) ==
               static_cast<ssize_t>(size);
    }
    std::copy_n(mBuffer + sizeof(header) + offset, size, static_cast<uint8_t*>(to));
    return true;
}

void IncomingFrame::closeFds() {
    while (mFdCount > 0) {
        ::close(mFds[--mFdCount]);
    }
    mMemory = UniqueFd();
}

int64_t nowMs() {
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

bool waitForEvent(int fd, short event, int64_t deadlineMs) {
    pollfd waited = {fd, event, 0};
    int count;
    do {
        const int64_t leftMs = deadlineMs < 0 ? -1 : std::max<int64_t>(0, deadlineMs - nowMs());
        count = ::poll(&waited, 1, static_cast<int>(leftMs));
    } while (count < 0 && errno == EINTR);
    return count > 0;
}

}  // namespace android::transport
