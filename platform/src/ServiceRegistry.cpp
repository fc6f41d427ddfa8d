#include "ServiceRegistry.h"

#include <poll.h>
#include <sys/eventfd.h>
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

#include "BinderProcess.h"
#include "Handshake.h"

namespace android {
namespace transport {
namespace {

/// For the other side to answer; it does so without running anybody's code.
constexpr int64_t kAnswerTimeoutNs = 5'000'000'000;

int64_t nowNs() {
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

/// Time left for poll(), rounded up.
int leftMs(int64_t deadlineNs) {
    return static_cast<int>(std::max<int64_t>(0, (deadlineNs - nowNs() + 999'999) / 1'000'000));
}

template <typename T>
bool sendRecord(int socket, const T& record) {
    return ::send(socket, &record, sizeof(record), MSG_NOSIGNAL | MSG_DONTWAIT) == sizeof(record);
}

/// Takes a record in that has to be there, whole.
template <typename T>
bool receiveRecord(int socket, T* record) {
    return ::recv(socket, record, sizeof(*record), MSG_DONTWAIT) == sizeof(*record) &&
           record->magic == kFrameMagic;
}

bool waitReadable(int fd, int64_t deadlineNs) {
    pollfd waited = {fd, POLLIN, 0};
    int count;
    do {
        count = ::poll(&waited, 1, leftMs(deadlineNs));
    } while (count < 0 && errno == EINTR);
    return count > 0;
}

/// Who is at the other end, according to the kernel; false for a user who has no business here.
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

/// True for a name that is the name of a file in the directory, and nowhere else.
bool isSound(const std::string& service) {
    return !service.empty() && service.front() != '.' &&
           service.find_first_of(std::string("/\0", 2)) == std::string::npos;
}

/// A lookup can only answer null, so the log says why the directory cannot be used.
bool openForLookup(bool create, RuntimeDirectory* directory) {
    const status_t status = RuntimeDirectory::open(create, directory);
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
    const std::lock_guard<std::mutex> lock(mLock);
    const auto found = mEntries.find(name);
    return found != mEntries.end() ? found->second.service : nullptr;
}

sp<IBinder> ServiceRegistry::findElsewhere(const std::string& name) {
    RuntimeDirectory directory;
    if (!isSound(name) || !openForLookup(false, &directory)) {
        return nullptr;
    }
    const int64_t deadlineNs = nowNs() + kAnswerTimeoutNs;
    sp<IBinder> service;
    while (askOnce(directory, name, deadlineNs, &service)) {
        // Two processes have just reached out to each other, or one has not noticed yet that their
        // connection is gone. Both settle within a moment, and without anything to wait for.
        const timespec moment = {0, 1'000'000};
        ::nanosleep(&moment, nullptr);
    }
    return service;
}

/// One attempt. True when it has to be repeated; otherwise `service` is set if it was found.
bool ServiceRegistry::askOnce(const RuntimeDirectory& directory, const std::string& name,
                              int64_t deadlineNs, sp<IBinder>* service) {
    ForkSafeFd socket = connectTo(directory, name);
    Peer peer;
    Greeting greeting;
    if (!socket.ok() || !identify(socket.get(), &peer) || !waitReadable(socket.get(), deadlineNs) ||
        !receiveRecord(socket.get(), &greeting)) {
        return false;
    }
    peer.instance = greeting.instance;
    std::shared_ptr<Connection> connection = mProcess.connectionTo(peer.instance);
    if (connection != nullptr) {
        connection->noticeDeath();
        if (connection->isDead()) {
            connection = nullptr;
        }
    }
    const BinderProcess::Outreach outreach(mProcess, peer.instance);
    Request request;
    request.wish = connection != nullptr ? Wish::kUseConnection : Wish::kConnect;
    request.instance = mProcess.instance();
    Answer answer;
    if (!sendRecord(socket.get(), request) || !waitReadable(socket.get(), deadlineNs) ||
        !receiveRecord(socket.get(), &answer)) {
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
    const std::lock_guard<std::mutex> lock(mLock);
    const auto known = mEntries.find(name);
    if (known != mEntries.end()) {
        known->second.service.swap(replaced);
        return OK;
    }
    RuntimeDirectory directory;
    status_t status = RuntimeDirectory::open(true, &directory);
    if (status == OK) {
        status = startAnswering();
    }
    Entry entry;
    entry.service = service;
    if (status == OK) {
        status = entry.socket.publish(directory, name);
    }
    if (status == OK) {
        mEntries.emplace(name, std::move(entry));
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(mChanged.get(), &one, sizeof(one));
    }
    return status;
}

/// Starts the thread that answers, once. REQUIRES: mLock held.
status_t ServiceRegistry::startAnswering() {
    if (mChanged.ok()) {
        return OK;
    }
    mChanged = ForkSafeFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!mChanged.ok()) {
        return -errno;
    }
    try {
        std::thread([this] { answerVisitors(); }).detach();
    } catch (const std::system_error& error) {
        mChanged = ForkSafeFd();
        return -error.code().value();
    }
    std::atexit(removeSockets);
    return OK;
}

/// At a clean exit. A process that dies otherwise leaves its sockets to be replaced.
void ServiceRegistry::removeSockets() {
    ServiceRegistry& self = BinderProcess::self().registry();
    const std::lock_guard<std::mutex> lock(self.mLock);
    RuntimeDirectory directory;
    if (self.mEntries.empty() || RuntimeDirectory::open(false, &directory) != OK) {
        return;
    }
    for (const auto& [name, entry] : self.mEntries) {
        entry.socket.withdraw(directory, name);
    }
}

void ServiceRegistry::answerVisitors() {
    std::vector<Visitor> visitors;
    for (;;) {
        std::vector<pollfd> waited;
        std::vector<std::string> services;
        {
            const std::lock_guard<std::mutex> lock(mLock);
            waited.push_back({mChanged.get(), POLLIN, 0});
            for (const auto& [name, entry] : mEntries) {
                services.push_back(name);
                waited.push_back({entry.socket.listener.get(), POLLIN, 0});
            }
        }
        for (const Visitor& visitor : visitors) {
            waited.push_back({visitor.socket.get(), POLLIN, 0});
        }
        // The first visitor has come first, hence is the first to be given up.
        const int timeoutMs = visitors.empty() ? -1 : leftMs(visitors.front().deadlineNs);
        ::poll(waited.data(), waited.size(), timeoutMs);

        if (waited[0].revents != 0) {
            uint64_t count;
            [[maybe_unused]] const ssize_t size = ::read(waited[0].fd, &count, sizeof(count));
        }
        const size_t firstVisitor = 1 + services.size();
        const int64_t now = nowNs();
        std::vector<Visitor> staying;
        for (size_t i = 0; i < visitors.size(); ++i) {
            if (waited[firstVisitor + i].revents != 0) {
                answer(visitors[i]);
            } else if (now < visitors[i].deadlineNs) {
                staying.push_back(std::move(visitors[i]));
            }
        }
        visitors = std::move(staying);
        for (size_t i = 0; i < services.size(); ++i) {
            if (waited[1 + i].revents != 0) {
                welcome(services[i], waited[1 + i].fd, &visitors);
            }
        }
    }
}

void ServiceRegistry::welcome(const std::string& service, int listener,
                              std::vector<Visitor>* visitors) {
    ForkSafeFd socket(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    Visitor visitor;
    Greeting greeting;
    greeting.instance = mProcess.instance();
    if (!socket.ok() || !identify(socket.get(), &visitor.peer) ||
        !sendRecord(socket.get(), greeting)) {
        return;
    }
    visitor.service = service;
    visitor.socket = std::move(socket);
    visitor.deadlineNs = nowNs() + kAnswerTimeoutNs;
    visitors->push_back(std::move(visitor));
}

void ServiceRegistry::answer(Visitor& visitor) {
    Request request;
    const sp<IBinder> service = findHere(visitor.service);
    if (!receiveRecord(visitor.socket.get(), &request)) {
        return;
    }
    visitor.peer.instance = request.instance;
    Answer answer;
    const std::shared_ptr<Connection> connection = mProcess.connectionTo(request.instance);
    if (connection != nullptr) {
        connection->noticeDeath();
    }
    if (request.wish == Wish::kUseConnection) {
        if (connection != nullptr && connection->peer().pid == visitor.peer.pid) {
            answer.outcome = Outcome::kGranted;
            answer.handle = connection->exportObject(service);
        }
        sendRecord(visitor.socket.get(), answer);
        return;
    }
    const int socket = visitor.socket.get();
    const bool accepted =
        mProcess.acceptConnection(visitor.socket, visitor.peer, [&](Connection& made) {
            answer.outcome = Outcome::kGranted;
            answer.handle = made.exportObject(service);
            sendRecord(socket, answer);
        });
    if (!accepted) {
        sendRecord(socket, answer);
    }
}

}  // namespace transport
}  // namespace android
