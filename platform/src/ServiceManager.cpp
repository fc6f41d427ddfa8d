// SPDX-License-Identifier: Apache-2.0
// The service manager: names, and who has them.
#include "BinderProcess.h"

#include <poll.h>
#include <sys/inotify.h>

#include <cstdlib>
#include <new>

#include <utils/String8.h>

namespace android::transport {
namespace {

constexpr int kGetServiceTimeoutMs = 5000;

std::string utf8(const String16& name) {
    const String8 text(name);
    return std::string(text.c_str(), text.size());
}

/** Who is at the other end, according to the kernel; false for a user who has no business here. */
bool identify(const ForkSafeFd& socket, ucred* peer) {
    socklen_t size = sizeof(*peer);
    if (::getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, peer, &size) != 0) {
        return false;
    }
    const bool isWelcome = peer->uid == ::geteuid() || peer->uid == 0;
    if (!isWelcome) {
        __android_log_print(ANDROID_LOG_ERROR, "binder", "refusing process %d of user %u",
                            static_cast<int>(peer->pid), static_cast<unsigned>(peer->uid));
    }
    return isWelcome;
}

/** True for a name that is the name of a file in the directory, and nowhere else. */
bool isSound(const std::string& name) {
    return !name.empty() && name.front() != '.' &&
           name.find_first_of(std::string("/\0", 2)) == std::string::npos;
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

sp<IBinder> BinderProcess::checkService(const String16& name) const {
    const std::string text = utf8(name);
    const sp<IBinder> service = findHere(text);
    if (service != nullptr || !isSound(text)) {
        return service;
    }
    const std::shared_ptr<Session> session = findSession(text);
    return session != nullptr ? session->serviceProxy() : nullptr;
}

sp<IBinder> BinderProcess::findHere(const std::string& name) const {
    const Mutex::Autolock lock(mLock);
    const auto found = mServices.find(name);
    return found != mServices.end() ? found->second.object : nullptr;
}

/** The session with the service that has the name now; null when there is none. */
std::shared_ptr<Session> BinderProcess::findSession(const std::string& name) const {
    RuntimeDirectory directory;
    if (!openForLookup(false, &directory)) {
        return nullptr;
    }
    Mutex::Autolock lock(mLock);
    const std::map<const Session*, Known> known = mSessions;
    lock.unlock();
    for (const auto& [address, it] : known) {
        it.session->findEnd(0);  // without a pool nobody else looks at those that are not used
    }
    const Mutex::Autolock again(mLock);
    const ino_t socketNumber = directory.socketNumber(name);
    for (const auto& [address, it] : mSessions) {
        if (it.name == name && it.socketNumber == socketNumber && !it.session->isDead()) {
            return it.session;
        }
    }
    ForkSafeFd socket = directory.connect(name);
    ucred peer = {};
    if (socketNumber == 0 || !socket.ok() || !identify(socket, &peer)) {
        return nullptr;
    }
    auto& process = const_cast<BinderProcess&>(*this);
    auto session = std::make_shared<Session>(process, std::move(socket), peer, nullptr);
    mSessions[session.get()] = {name, socketNumber, session};
    if (mHasPool) {
        session->startReading();
    }
    return session;
}

sp<IBinder> BinderProcess::getService(const String16& name) const {
    sp<IBinder> service = checkService(name);
    if (service != nullptr) {
        return service;  // A watch takes the kernel some milliseconds to end.
    }
    const int64_t deadlineMs = nowMs() + kGetServiceTimeoutMs;
    // The directory is watched before the next look, so no service can slip in between.
    UniqueFd changes(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    RuntimeDirectory directory;
    bool isWatched = openForLookup(true, &directory);
    ::inotify_add_watch(changes.get(), directory.pathOf(".").c_str(), IN_MOVED_TO);
    while (isWatched) {
        service = checkService(name);
        if (service != nullptr) {
            return service;
        }
        isWatched = waitForEvent(changes.get(), POLLIN, deadlineMs);
        char events[4096];
        [[maybe_unused]] const ssize_t size = ::read(changes.get(), events, sizeof(events));
    }
    __android_log_print(ANDROID_LOG_WARN, "ServiceManager",
                        "Service %s didn't start. Returning NULL", utf8(name).c_str());
    return nullptr;
}

void BinderProcess::forget(const Session& session) {
    decltype(mSessions)::node_type last;  // let go of without the lock
    const Mutex::Autolock lock(mLock);
    last = mSessions.extract(&session);
}

// Offering services.

status_t BinderProcess::addService(const String16& name, const sp<IBinder>& service,
                                   bool /*allowIsolated*/, int /*dumpsysFlags*/) {
    const std::string text = utf8(name);
    if (!isSound(text) || service == nullptr) {
        return BAD_VALUE;
    }
    sp<IBinder> replaced = service;  // let go of without the lock
    const Mutex::Autolock lock(mLock);
    const auto known = mServices.find(text);
    if (known != mServices.end()) {
        known->second.object.swap(replaced);
        return OK;
    }
    Service entry{service, {}, {}, {}};
    status_t status = entry.directory.open(true);
    status = status == OK ? entry.directory.own(text, &entry.lock) : status;
    status = status == OK ? entry.directory.listen(text, &entry.listener) : status;
    if (status != OK) {
        return status;
    }
    const int listener = entry.listener.get();
    const auto added = mServices.emplace(text, std::move(entry)).first;
    if (!startThread([this, text, listener] { acceptClients(text, listener); })) {
        added->second.directory.withdraw(text);
        mServices.erase(added);
        return -EAGAIN;
    }
    // A process that ends without exit leaves its files to be replaced.
    [[maybe_unused]] static const int registered = std::atexit([] { self().removeFiles(); });
    return OK;
}

void BinderProcess::removeFiles() {
    const Mutex::Autolock lock(mLock);
    for (const auto& [name, service] : mServices) {
        service.directory.withdraw(name);
    }
}

/** Makes a session of each connection, for the life of the process. */
void BinderProcess::acceptClients(const std::string& name, int listener) {
    for (;;) {
        waitForEvent(listener, POLLIN, -1);
        ForkSafeFd socket;
        {
            const Mutex::Autolock noFork(forkMutex());
            socket = ForkSafeFd(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        }
        ucred peer = {};
        try {
            if (!socket.ok()) {
                waitForEvent(-1, 0, nowMs() + 1);  // for descriptors, should there be no more
            } else if (identify(socket, &peer)) {
                std::make_shared<Session>(*this, std::move(socket), peer, findHere(name))
                    ->startReading();
            }
        } catch (const std::bad_alloc&) {
            // The client finds its session ended.
        }
    }
}

}  // namespace android::transport

android::sp<android::IServiceManager> android::defaultServiceManager() {
    return &transport::BinderProcess::self();
}
