// SPDX-License-Identifier: Apache-2.0
// Any bytes and descriptors from the peer of a living connection: only sound frames are taken, the
// first other one ends the connection, and nothing of it stays behind.
#include <binder/ProcessState.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <set>

#include "platform/src/BinderProcess.h"
#include "support/Fuzzing.h"

using namespace android::transport;
using namespace fuzz;

namespace {

std::mutex gLock;
std::condition_variable gChanged;
/** What has to be gone in the end: the connection, and the object that the peer may call. */
size_t gLiving = 0;
/** Calls that the object has got. */
size_t gRuns = 0;

void add(size_t* count, size_t change) {
    const std::lock_guard<std::mutex> lock(gLock);
    *count += change;
    gChanged.notify_all();
}

template <typename F>
void waitUntil(F isReached) {
    std::unique_lock<std::mutex> lock(gLock);
    gChanged.wait(lock, isReached);
}

class Target : public BBinder {
public:
    Target() { add(&gLiving, 1); }

protected:
    ~Target() override { add(&gLiving, size_t(-1)); }
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        add(&gRuns, 1);
        switch (code) {
            case 1:
                return reply->write(data.data(), data.dataSize());
            case 2: {  // keeps the peer's object, and gives it back
                const sp<IBinder> object = data.readStrongBinder();
                const std::lock_guard<std::mutex> lock(mLock);
                mKept = object != nullptr && object->remoteBinder() != nullptr ? object : nullptr;
                return reply->writeStrongBinder(mKept);
            }
            case 3:
                return BAD_TYPE;
            default:
                return BBinder::onTransact(code, data, reply, flags);
        }
    }

private:
    std::mutex mLock;
    sp<IBinder> mKept;
};

/** What the peer sends: a stream, in pieces of which each may bring descriptors along. */
struct Stream {
    explicit Stream(FuzzedDataProvider& data) {
        for (int count = data.ConsumeIntegralInRange(0, 3); count > 0; --count) {
            const size_t offset = data.ConsumeIntegral<uint16_t>();
            fds[offset] = data.ConsumeIntegralInRange<size_t>(0, 3);
        }
        bytes = data.ConsumeRemainingBytes<uint8_t>();
        fds.erase(fds.lower_bound(bytes.size()), fds.end());
    }

    void sendTo(int socket) const {
        size_t begin = 0, count = 0;
        for (const auto& [offset, nextCount] : fds) {
            send(socket, begin, offset, count);
            begin = offset;
            count = nextCount;
        }
        send(socket, begin, bytes.size(), count);
    }

    std::vector<uint8_t> bytes;
    std::map<size_t, size_t> fds; /**< descriptors by the offset of the byte that they come with */

private:
    void send(int socket, size_t begin, size_t end, size_t count) const {
        if (begin == end) {
            return;
        }
        iovec part = {const_cast<uint8_t*>(bytes.data()) + begin, end - begin};
        alignas(cmsghdr) char control[CMSG_SPACE(3 * sizeof(int))] = {};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        if (count > 0) {
            const int passed[3] = {socket, socket, socket};
            message.msg_control = control;
            message.msg_controllen = CMSG_SPACE(count * sizeof(int));
            cmsghdr* const item = CMSG_FIRSTHDR(&message);
            *item = {CMSG_LEN(count * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
            std::memcpy(CMSG_DATA(item), passed, count * sizeof(int));
        }
        const ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL);
        REQUIRE(sent == static_cast<ssize_t>(end - begin) || errno == EPIPE);
    }
};

/** The connection's state as far as it tells a sound frame from another. */
struct Model {
    bool exported = true; /**< handle 1 */
    bool awaited = false; /**< the reply to call 1 */
    size_t ahead = 0;     /**< bytes of oneway calls */
    status_t status = DEAD_OBJECT;
    std::set<uint64_t> calls;
    size_t runs = 0; /**< of calls, those aside that wait for the thread of call 1 */
    /**
     * Descriptors came with another byte than the first of a frame that has some. How far the
     * connection then goes depends on how much it has read at once.
     */
    bool isUnclear = false;

    /** Whether all frames of a stream are sound; the end may come anywhere. */
    bool takes(const Stream& stream) {
        FrameHeader header;
        size_t at = 0;
        while (stream.bytes.size() - at >= sizeof(header)) {
            std::memcpy(&header, &stream.bytes[at], sizeof(header));
            if (header.magic != kFrameMagic || header.dataSize > 1 << 20 ||
                header.objectCount > header.dataSize / 24 || header.fdCount > header.objectCount ||
                header.fdCount > 253) {
                return false;
            }
            const size_t end = at + sizeof(header) + header.dataSize + 24u * header.objectCount;
            const auto own = stream.fds.find(at);
            const size_t fds = own != stream.fds.end() ? own->second : 0;
            isUnclear = isUnclear || hasDescriptors(stream, at + 1, end) ||
                        (fds > 0 && header.fdCount == 0 && end != stream.bytes.size());
            if (end > stream.bytes.size()) {
                return true;
            }
            if (isUnclear || fds != header.fdCount || !takes(header, &stream.bytes[end])) {
                return false;
            }
            at = end;
        }
        isUnclear = hasDescriptors(stream, at + 1, stream.bytes.size());
        return true;
    }

private:
    /** Whether the call is for the thread that awaits the reply. It may come too late for that. */
    bool isNested(const FrameHeader& header) const {
        return awaited && header.nestedIn == 1 && (header.flags & IBinder::FLAG_ONEWAY) == 0;
    }
    static bool hasDescriptors(const Stream& stream, size_t begin, size_t end) {
        return std::any_of(stream.fds.lower_bound(begin), stream.fds.lower_bound(end),
                           [](const auto& piece) { return piece.second > 0; });
    }
    bool takes(const FrameHeader& header, const uint8_t* end) {
        switch (header.type) {
            case FrameType::kCall:
                if ((header.flags & IBinder::FLAG_ONEWAY) == 0) {
                    calls.insert(header.callId);
                }
                runs += isNested(header) ? 0 : 1;
                return header.target == 1 && exported && hasSoundObjects(header, end);
            case FrameType::kReply:
                if (!std::exchange(awaited, false) || header.callId != 1 ||
                    !hasSoundObjects(header, end)) {
                    return false;
                }
                status = header.status;
                return true;
            case FrameType::kRelease: {
                const bool held = exported && header.target == 1 && header.code <= 1;
                exported = exported && header.code == 0;
                return held;
            }
            case FrameType::kOnewayDone:
                if (header.code > ahead) {
                    return false;
                }
                ahead -= header.code;
                return true;
        }
        return false;
    }
    bool hasSoundObjects(const FrameHeader& header, const uint8_t* end) const {
        std::vector<ParcelObject> objects;
        size_t fds = 0;
        for (const uint8_t* at = end - 24u * header.objectCount; at < end; at += 24) {
            WireObject object;
            std::memcpy(&object, at, sizeof(object));
            const bool isOwn = object.kind == ObjectKind::kReceivers;
            if (object.kind > ObjectKind::kDescriptor ||
                (isOwn && (object.handle != 1 || !exported))) {
                return false;
            }
            fds += object.kind == ObjectKind::kDescriptor ? 1 : 0;
            objects.emplace_back().offset = object.offset;
        }
        const std::vector<uint8_t> parcel(header.dataSize);
        return fds == header.fdCount && Parcel().ipcSetData(parcel, objects) == OK;
    }
};

/** What the process has sent: whole frames, and replies only to calls. */
void checkSent(int socket, const Model& model) {
    std::vector<uint8_t> sent(1 << 18);
    const ssize_t size = recv(socket, sent.data(), sent.size(), MSG_DONTWAIT);
    const uint8_t* at = sent.data();
    for (const uint8_t* const end = at + std::max<ssize_t>(size, 0); at < end;) {
        FrameHeader header;
        REQUIRE(end - at >= static_cast<ssize_t>(sizeof(header)));
        std::memcpy(&header, at, sizeof(header));
        REQUIRE(header.magic == kFrameMagic);
        REQUIRE(header.type != FrameType::kReply || model.calls.count(header.callId) > 0);
        at += sizeof(header) + header.dataSize + 24u * header.objectCount;
        REQUIRE(at <= end);
    }
}

void talk(FuzzedDataProvider& data) {
    enum : uint8_t { kAwaits = 1, kIsAhead = 2 };
    const auto choice = data.ConsumeIntegral<uint8_t>();
    const Stream stream(data);
    int ends[2];
    REQUIRE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    const UniqueFd peer(ends[1]);
    BinderProcess& process = BinderProcess::self();
    std::shared_ptr<Connection> connection(
        new Connection(process, ForkSafeFd(ends[0]), {getpid(), getuid(), 1}),
        [](Connection* dead) {
            delete dead;
            add(&gLiving, size_t(-1));
        });
    gLiving = 1;
    gRuns = 0;
    REQUIRE(connection->exportObject(new Target) == 1);

    Model model;
    sp<IBinder> proxy = connection->receiveProxy(1);
    if ((choice & kIsAhead) != 0) {
        REQUIRE(proxy->transact(9, Parcel(), nullptr, IBinder::FLAG_ONEWAY) == OK);
        model.ahead = 256;
    }
    const bool awaits = model.awaited = (choice & kAwaits) != 0;
    const bool isSound = model.takes(stream);
    // A connection must not need the end of the stream to find a bad frame, nor to run the calls.
    const bool endsLater = !model.isUnclear && !(isSound && model.awaited);
    const auto end = [&] { REQUIRE(shutdown(peer.get(), SHUT_WR) == 0); };
    const auto send = [&] {
        stream.sendTo(peer.get());
        return endsLater ? void() : end();
    };
    status_t status = DEAD_OBJECT;
    if (awaits) {
        // Everything is there before the call, which reads it as far as its reply.
        send();
        Parcel reply;
        status = proxy->transact(9, Parcel(), &reply);
    }
    if (!connection->isDead()) {
        process.pool().watch(connection);
    }
    proxy.clear();
    connection.reset();
    if (!awaits) {
        send();
    }
    if (endsLater && isSound) {
        waitUntil([&] { return gRuns >= model.runs; });
        end();
    }
    waitUntil([] { return gLiving == 0; });
    const size_t logged = takeLog().size();
    if (model.isUnclear) {
        REQUIRE(logged <= 1);
        return;
    }
    REQUIRE(logged == (isSound ? 0 : 1));
    REQUIRE(status == model.status);
    checkSent(peer.get(), model);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static const bool started = [] {
        ProcessState::self()->startThreadPool();
        return BinderProcess::self().pool().ready();
    }();
    REQUIRE(started);
    return requireNoLeak([&] {
        FuzzedDataProvider data(bytes, size);
        talk(data);
    });
}
