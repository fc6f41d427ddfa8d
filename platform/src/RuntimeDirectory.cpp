// SPDX-License-Identifier: Apache-2.0
#include "RuntimeDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdlib>

namespace android::transport {
namespace {

/** The text of an environment variable; empty when it is not set or empty. */
std::string environment(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr ? value : "";
}

status_t lastError() {
    return errno == EACCES ? status_t{PERMISSION_DENIED} : -errno;
}

/** A socket that makes nobody wait, bound or connected to the path; nothing when that fails. */
ForkSafeFd openSocket(int (*attach)(int, const sockaddr*, socklen_t), const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return ForkSafeFd();
    }
    path.copy(address.sun_path, path.size());
    const Mutex::Autolock noFork(forkMutex());
    UniqueFd fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool isAttached = fd.ok() && attach(fd.get(), reinterpret_cast<const sockaddr*>(&address),
                                              sizeof(address)) == 0;
    return isAttached ? ForkSafeFd(fd.release()) : ForkSafeFd();
}

}  // namespace

std::string RuntimeDirectory::name() {
    std::string path = environment("DISPLAYENGINE_RUNTIME_DIR");
    if (!path.empty()) {
        return path;
    }
    path = environment("XDG_RUNTIME_DIR");
    if (!path.empty()) {
        return path + "/displayengine";
    }
    path = environment("TMPDIR");
    return (path.empty() ? "/tmp" : path) + "/displayengine-" + std::to_string(::geteuid());
}

status_t RuntimeDirectory::open(bool create) {
    const std::string path = name();
    if (create && ::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        return lastError();
    }
    mFd = UniqueFd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Looked at through the descriptor, so what is checked is what is used from here on.
    struct stat state = {};
    if (!mFd.ok() || ::fstat(mFd.get(), &state) != 0) {
        return lastError();
    }
    const bool isOwn = state.st_uid == ::geteuid() && (state.st_mode & 077) == 0;
    return isOwn ? status_t{OK} : PERMISSION_DENIED;
}

std::string RuntimeDirectory::pathOf(const std::string& file) const {
    return "/proc/self/fd/" + std::to_string(mFd.get()) + "/" + file;
}

status_t RuntimeDirectory::own(const std::string& service, ForkSafeFd* lock) const {
    const std::string path = pathOf(service + ".lock");
    struct stat locked = {};
    struct stat named = {};
    do {
        const Mutex::Autolock noFork(forkMutex());
        UniqueFd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!fd.ok() || ::fstat(fd.get(), &locked) != 0) {
            return lastError();
        }
        if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
            return errno == EWOULDBLOCK ? status_t{ALREADY_EXISTS} : lastError();
        }
        // An owner that ended meanwhile has removed the file, and others make a new one.
        if (::stat(path.c_str(), &named) == 0 && named.st_ino == locked.st_ino) {
            *lock = ForkSafeFd(fd.release());
        }
    } while (!lock->ok());
    return OK;
}

status_t RuntimeDirectory::listen(const std::string& service, ForkSafeFd* listener) const {
    // Under a name of its own until it listens: whoever sees the socket can connect to it.
    const std::string draft = pathOf(service + ".new");
    ::unlink(draft.c_str());
    *listener = openSocket(::bind, draft);
    const bool isDone = listener->ok() && ::listen(listener->get(), SOMAXCONN) == 0 &&
                        ::rename(draft.c_str(), pathOf(service + ".sock").c_str()) == 0;
    return isDone ? OK : lastError();
}

void RuntimeDirectory::withdraw(const std::string& service) const {
    ::unlink(pathOf(service + ".sock").c_str());
    ::unlink(pathOf(service + ".lock").c_str());
}

ino_t RuntimeDirectory::socketNumber(const std::string& service) const {
    struct stat state = {};
    return ::stat(pathOf(service + ".sock").c_str(), &state) == 0 ? state.st_ino : 0;
}

ForkSafeFd RuntimeDirectory::connect(const std::string& service) const {
    return openSocket(::connect, pathOf(service + ".sock"));
}

}  // namespace android::transport
