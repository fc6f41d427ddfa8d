// SPDX-License-Identifier: Apache-2.0
#include "ServiceRegistry.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <thread>
#include <utility>

#include <android/log.h>
#include <binder/IServiceManager.h>
#include <utils/String8.h>

#include "BinderProcess.h"

namespace android {
namespace transport {
namespace {

/** For the other side to answer; it does so without running anybody's code. */
constexpr int64_t kAnswerTimeoutNs = 5'000'000'000;
constexpr int64_t kGetServiceTimeoutNs = 5'000'000'000;

int64_t nowNs() {
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

/** Time left for poll(), rounded up. */
int leftMs(int64_t deadlineNs) {
    return static_cast<int>(std::max<int64_t>(0, (deadlineNs - nowNs() + 999'999) / 1'000'000));
}

/** For what settles within a moment, without anything to wait for. */
void waitAMoment() {
    const timespec moment = {0, 1'000'000};
    ::nanosleep(&moment, nullptr);
}

bool waitReadable(int fd, int64_t deadlineNs) {
    pollfd waited = {fd, POLLIN, 0};
    int count;
    do {
        count = ::poll(&waited, 1, leftMs(deadlineNs));
    } while (count < 0 && errno == EINTR);
    return count > 0;
}

/** Moves a record, in as many pieces as the socket makes of it. `move` moves some bytes. */
template <typename RECORD, typename MOVE>
bool moveWhole(RECORD* record, MOVE move) {
    size_t done = 0;
    while (done < sizeof(*record)) {
        const ssize_t count =
            move(reinterpret_cast<uint8_t*>(record) + done, sizeof(*record) - done);
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return false;
        }
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return true;
}

template <typename T>
bool sendRecord(int socket, T record) {
    return moveWhole(&record, [socket](const uint8_t* part, size_t size) {
        return ::send(socket, part, size, MSG_NOSIGNAL | MSG_DONTWAIT);
    });
}

/** Waits for a record. */
template <typename T>
bool receiveRecord(int socket, T* record, int64_t deadlineNs) {
    return moveWhole(record,
                     [=](uint8_t* part, size_t size) -> ssize_t {
                         return waitReadable(socket, deadlineNs)
                                    ? ::recv(socket, part, size, MSG_DONTWAIT)
                                    : 0;
                     }) &&
           record->magic == kFrameMagic;
}

/** Who is at the other end, according to the kernel; false for a user who has no business here. */
bool identify(int socket, Peer* peer) {
    ucred credentials = {};
    socklen_t size = sizeof(credentials);
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        return false;
    }
    peer->pid = credentials.pid;
    peer->uid = credentials.uid;
    if (peer->uid != ::geteuid() && peer->uid != 0) {
        __android_log_print(ANDROID_LOG_ERROR, "binder", "refusing process %d of user %u",
                            static_cast<int>(peer->pid), static_cast<unsigned>(peer->uid));
        return false;
    }
    return true;
}

/** True for a name that is the name of a file in the directory, and nowhere else. */
bool isSound(const std::string& service) {
    return !service.empty() && service.front() != '.' &&
           service.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

/** A lookup can only answer null, so the log says why the directory cannot be used. */
bool openForLookup(bool create, RuntimeDirectory* directory) {
    const status_t status = directory->open(create);
    if (status != OK && status != NAME_NOT_FOUND) {
        __android_log_print(ANDROID_LOG_ERROR, "binder",
                            "the runtime directory %s cannot be used (%s); it must belong to user "
                            "%u and be open to nobody else",
                            RuntimeDirectory::name().c_str(), statusToString(status).c_str(),
                            static_cast<unsigned>(::geteuid()));
    }
    return status == OK;
}

}  // namespace

// Looking for a service.

sp<IBinder> ServiceRegistry::find(const std::string& name) {
    sp<IBinder> service = findHere(name);
    return service != nullptr ? service : findElsewhere(name);
}

sp<IBinder> ServiceRegistry::findHere(const std::string& name) {
    const Mutex::Autolock lock(mLock);
    const auto found = mEntries.find(name);
    return found != mEntries.end() ? found->second.service : nullptr;
}

sp<IBinder> ServiceRegistry::findElsewhere(const std::string& name) {
    RuntimeDirectory directory;
    if (!isSound(name) || !openForLookup(false, &directory) || !mProcess.pool().ready()) {
        return nullptr;
    }
    const int64_t deadlineNs = nowNs() + kAnswerTimeoutNs;
    sp<IBinder> service;
    while (askOnce(directory, name, deadlineNs, &service)) {
        // Two processes have just reached out to each other, or one has not noticed yet that their
        // connection is gone.
        waitAMoment();
    }
    return service;
}

/** One attempt. True when it has to be repeated; otherwise `service` is set if it was found. */
bool ServiceRegistry::askOnce(const RuntimeDirectory& directory, const std::string& name,
                              int64_t deadlineNs, sp<IBinder>* service) {
    ForkSafeFd socket = directory.connect(name);
    Peer peer;
    Greeting greeting;
    if (!socket.ok() || !identify(socket.get(), &peer) ||
        !receiveRecord(socket.get(), &greeting, deadlineNs)) {
        return false;
    }
    peer.instance = greeting.instance;
    std::shared_ptr<Connection> connection = mProcess.connectionTo(peer.instance);
    if (connection != nullptr && connection->noticeDeath()) {
        connection = nullptr;
    }
    const BinderProcess::Outreach outreach(mProcess, peer.instance);
    Request request;
    request.wish = connection != nullptr ? Wish::kUseConnection : Wish::kConnect;
    request.instance = mProcess.instance();
    Answer answer;
    if (!sendRecord(socket.get(), request) || !receiveRecord(socket.get(), &answer, deadlineNs)) {
        return false;
    }
    if (answer.outcome != Outcome::kGranted) {
        return nowNs() < deadlineNs;
    }
    if (connection == nullptr) {
        connection = mProcess.addConnection(std::move(socket), peer);
    }
    *service = connection->receiveProxy(answer.handle);
    return false;
}

sp<IBinder> ServiceRegistry::waitFor(const std::string& name, int64_t timeoutNs) {
    const int64_t deadlineNs = nowNs() + timeoutNs;
    // The directory is watched before the first look, so no service can slip in between.
    UniqueFd changes(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    RuntimeDirectory directory;
    if (!openForLookup(true, &directory)) {
        return nullptr;
    }
    ::inotify_add_watch(changes.get(), directory.pathOf(".").c_str(), IN_MOVED_TO | IN_CREATE);
    for (;;) {
        sp<IBinder> service = find(name);
        if (service != nullptr || !waitReadable(changes.get(), deadlineNs)) {
            return service;
        }
        char events[4096];
        [[maybe_unused]] const ssize_t size = ::read(changes.get(), events, sizeof(events));
    }
}

// Offering services.

status_t ServiceRegistry::add(const std::string& name, const sp<IBinder>& service) {
    if (!isSound(name) || service == nullptr) {
        return BAD_VALUE;
    }
    sp<IBinder> replaced = service;  // let go of without the lock
    const Mutex::Autolock lock(mLock);
    const auto known = mEntries.find(name);
    if (known != mEntries.end()) {
        known->second.service.swap(replaced);
        return OK;
    }
    RuntimeDirectory directory;
    Entry entry;
    entry.service = service;
    status_t status = mProcess.pool().ready() ? directory.open(true) : -EMFILE;
    if (status != OK || (status = directory.listen(name, &entry.listener)) != OK) {
        return status;
    }
    try {
        const int listener = entry.listener.get();
        std::thread([this, name, listener] { acceptVisitors(name, listener); }).detach();
    } catch (const std::system_error& error) {
        directory.withdraw(name);
        return -error.code().value();
    }
    if (mEntries.empty()) {
        std::atexit(removeSockets);
    }
    mEntries.emplace(name, std::move(entry));
    return OK;
}

/** At a clean exit. A process that dies otherwise leaves its sockets to be replaced. */
void ServiceRegistry::removeSockets() {
    ServiceRegistry& self = BinderProcess::self().registry();
    const Mutex::Autolock lock(self.mLock);
    RuntimeDirectory directory;
    if (!self.mEntries.empty() && directory.open(false) == OK) {
        for (const auto& [name, entry] : self.mEntries) {
            directory.withdraw(name);
        }
    }
}

/** Greets whoever looks for the service, for the life of the process. */
void ServiceRegistry::acceptVisitors(const std::string& service, int listener) {
    for (;;) {
        ForkSafeFd socket(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        if (!socket.ok()) {
            waitAMoment();  // for descriptors, should there be no more
            continue;
        }
        Peer peer;
        if (!identify(socket.get(), &peer)) {
            continue;
        }
        try {
            // On a thread of its own, so that one who says nothing does not keep the others out.
            std::thread([this, service, peer, visitor = std::move(socket)]() mutable {
                answer(service, visitor, peer);
            }).detach();
        } catch (const std::system_error&) {
            waitAMoment();  // the visitor has been sent away
        }
    }
}

void ServiceRegistry::answer(const std::string& service, ForkSafeFd& visitor, Peer& peer) {
    const int socket = visitor.get();
    Greeting greeting;
    greeting.instance = mProcess.instance();
    Request request;
    if (!sendRecord(socket, greeting) ||
        !receiveRecord(socket, &request, nowNs() + kAnswerTimeoutNs)) {
        return;
    }
    peer.instance = request.instance;
    Answer answer;
    const auto grant = [&](Connection& connection) {
        answer.outcome = Outcome::kGranted;
        answer.handle = connection.exportObject(findHere(service));
        sendRecord(socket, answer);
    };
    const std::shared_ptr<Connection> connection = mProcess.connectionTo(peer.instance);
    const bool dead = connection == nullptr || connection->noticeDeath();
    if (request.wish == Wish::kUseConnection && !dead && connection->peer().pid == peer.pid) {
        grant(*connection);
    } else if (request.wish == Wish::kUseConnection ||
               !mProcess.acceptConnection(visitor, peer, grant)) {
        sendRecord(socket, answer);
    }
}

}  // namespace transport

namespace {

class ServiceManager : public IServiceManager {
public:
    sp<IBinder> getService(const String16& name) const override {
        sp<IBinder> service = registry().waitFor(utf8(name), transport::kGetServiceTimeoutNs);
        if (service == nullptr) {
            __android_log_print(ANDROID_LOG_WARN, "ServiceManager",
                                "Service %s didn't start. Returning NULL", utf8(name).c_str());
        }
        return service;
    }
    sp<IBinder> checkService(const String16& name) const override {
        return registry().find(utf8(name));
    }
    status_t addService(const String16& name, const sp<IBinder>& service, bool /*allowIsolated*/,
                        int /*dumpsysFlags*/) override {
        return registry().add(utf8(name), service);
    }

protected:
    /** The registry is no object of its own that could be handed on. */
    IBinder* onAsBinder() override { return nullptr; }

private:
    static transport::ServiceRegistry& registry() {
        return transport::BinderProcess::self().registry();
    }
    static std::string utf8(const String16& name) {
        const String8 text(name);
        return std::string(text.c_str(), text.size());
    }
};

}  // namespace

sp<IServiceManager> defaultServiceManager() {
    static const sp<IServiceManager>* const manager = new sp<IServiceManager>(new ServiceManager());
    return *manager;
}

}  // namespace android
