// SPDX-License-Identifier: Apache-2.0
#include "RuntimeDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace android {
namespace transport {
namespace {

/** The text of an environment variable; empty when it is not set or empty. */
std::string environment(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr ? value : "";
}

bool fillAddress(const std::string& path, sockaddr_un* address) {
    *address = {};
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof(address->sun_path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

status_t lastError() {
    return errno == EACCES ? status_t{PERMISSION_DENIED} : -errno;
}

/** Keeps other processes from replacing a socket at the same time. */
class DirectoryLock {
public:
    explicit DirectoryLock(int fd) : mFd(fd) {
        while (::flock(mFd, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~DirectoryLock() { ::flock(mFd, LOCK_UN); }

private:
    const int mFd;
};

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
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Looked at through the descriptor, so what is checked is what is used from here on.
    struct stat state = {};
    if (!fd.ok() || ::fstat(fd.get(), &state) != 0) {
        return lastError();
    }
    if (state.st_uid != ::geteuid() || (state.st_mode & 077) != 0) {
        return PERMISSION_DENIED;
    }
    mFd = std::move(fd);
    return OK;
}

std::string RuntimeDirectory::pathOf(const std::string& file) const {
    return "/proc/self/fd/" + std::to_string(mFd.get()) + "/" + file;
}

status_t RuntimeDirectory::listen(const std::string& service, ForkSafeFd* listener) const {
    const DirectoryLock lock(mFd.get());
    if (connect(service).ok() || errno == EAGAIN) {  // the latter when many others are waiting
        return ALREADY_EXISTS;
    }
    // Under a name of its own until it listens: whoever sees the socket can connect to it.
    const std::string draft = service + ".new";
    sockaddr_un address;
    ::unlinkat(mFd.get(), draft.c_str(), 0);
    ForkSafeFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket.ok() || !fillAddress(pathOf(draft), &address) ||
        ::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(socket.get(), SOMAXCONN) != 0 ||
        ::renameat(mFd.get(), draft.c_str(), mFd.get(), (service + ".sock").c_str()) != 0) {
        return lastError();
    }
    *listener = std::move(socket);
    return OK;
}

void RuntimeDirectory::withdraw(const std::string& service) const {
    ::unlinkat(mFd.get(), (service + ".sock").c_str(), 0);
}

ForkSafeFd RuntimeDirectory::connect(const std::string& service) const {
    sockaddr_un address;
    // Without waiting, should the other process be stopped and its queue be full.
    ForkSafeFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (socket.ok() && fillAddress(pathOf(service + ".sock"), &address) &&
        ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
        ::fcntl(socket.get(), F_SETFL, 0) == 0) {
        return socket;
    }
    const int reason = errno;
    socket = ForkSafeFd();
    errno = reason;
    return socket;
}

}  // namespace transport
}  // namespace android
