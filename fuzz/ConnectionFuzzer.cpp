// SPDX-License-Identifier: Apache-2.0
// Any messages and descriptors from the peer of a session, at either end of it: whatever comes, the
// session ends with its main line, and nothing of it stays behind.
#include <binder/ProcessState.h>
#include <sys/socket.h>

#include <future>

#include "platform/src/BinderProcess.h"
#include "support/Fuzzing.h"

using namespace android::transport;
using namespace fuzz;

namespace {

/** Echoes, and keeps what it is given. */
class Target : public BBinder {
protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code > 1) {
            return BBinder::onTransact(code, data, reply, flags);
        }
        const std::lock_guard<std::mutex> lock(mLock);
        mKept = data.readStrongBinder();
        reply->writeStrongBinder(mKept);
        return reply->write(data.data(), data.dataSize());
    }

private:
    std::mutex mLock;
    sp<IBinder> mKept;
};

/** The ends of socket pairs that the hostile peer has; the first is the main line. */
using Sockets = std::vector<UniqueFd>;

/** Makes a pair, keeps the one end and gives the other. */
ForkSafeFd openPair(Sockets* sockets) {
    int ends[2];
    const Mutex::Autolock noFork(forkMutex());
    REQUIRE(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0);
    sockets->emplace_back(ends[0]);
    return ForkSafeFd(ends[1]);
}

void sendAnything(FuzzedDataProvider& data, Sockets* sockets) {
    const auto upTo = [&](uint32_t max) { return data.ConsumeIntegralInRange<uint32_t>(0, max); };
    const int socket = (*sockets)[upTo(static_cast<uint32_t>(sockets->size() - 1))].get();
    if (data.ConsumeBool()) {
        const auto bytes = data.ConsumeBytes<uint8_t>(data.ConsumeIntegral<uint8_t>());
        send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return;
    }
    const std::vector<uint8_t> bytes(data.ConsumeBool() ? kMaxInlineBytes + 4 : 100);
    OutgoingFrame frame;
    frame.header.type = static_cast<FrameType>(upTo(5));
    frame.header.handle = upTo(2);
    frame.header.code = data.ConsumeBool() ? 1 : data.ConsumeIntegral<uint32_t>();
    frame.header.flags = upTo(1);
    frame.header.dataSize = static_cast<uint32_t>(bytes.size());
    frame.data = bytes.data();
    for (uint32_t i = upTo(3); i > 0; --i) {
        const auto kind = static_cast<ObjectKind>(upTo(4));
        const auto offset = data.ConsumeIntegral<uint8_t>();
        frame.records.push_back({offset, upTo(2), kind, 0});
    }
    std::vector<ForkSafeFd> passed;
    for (uint32_t i = upTo(2); i > 0; --i) {
        passed.push_back(openPair(sockets));
        frame.fds.push_back(passed.back().get());
    }
    frame.send(socket);
}

void talk(FuzzedDataProvider data) {
    const bool isService = data.ConsumeBool();
    Sockets sockets;
    const auto gone = std::make_shared<std::promise<void>>();
    std::shared_ptr<Session> session(
        new Session(BinderProcess::self(), openPair(&sockets), {getpid(), getuid(), getgid()},
                    isService ? new Target : nullptr),
        [gone](Session* last) {
            delete last;
            gone->set_value();
        });
    session->startReading();
    std::future<void> caller;
    if (!isService) {
        caller = std::async(std::launch::async, [proxy = session->serviceProxy()] {
            Parcel request;
            Parcel reply;
            request.writeStrongBinder(new Target);
            proxy->transact(1, request, &reply);
        });
        const FrameBuffer buffer(new uint8_t[kFrameBufferBytes]);
        IncomingFrame frame(buffer);
        REQUIRE(frame.receive(sockets[0].get()) == OK && frame.header.fdCount == 1);
        sockets.emplace_back(frame.fd(0));
        frame.releaseFds();
    }
    session.reset();
    while (data.remaining_bytes() > 0) {
        sendAnything(data, &sockets);
    }
    sockets.clear();
    caller = {};  // waits for it; its proxy keeps the session
    gone->get_future().get();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    ProcessState::self()->startThreadPool();
    return requireNoLeak([&] { talk(FuzzedDataProvider(bytes, size)); });
}
