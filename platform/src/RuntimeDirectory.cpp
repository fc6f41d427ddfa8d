#include "RuntimeDirectory.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace android {
namespace transport {
namespace {

/// The text of an environment variable; empty when it is not set or empty.
std::string environment(const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr ? value : "";
}

bool fillAddress(const std::string& path, sockaddr_un* address) {
    *address = {};
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof(address->sun_path)) {
        return false;
    }
    std::memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

status_t lastError() {
    return errno == EACCES ? status_t{PERMISSION_DENIED} : -errno;
}

/// The whole-file lock of this process. It is neither shared with nor inherited by a child.
bool lockFile(int fd) {
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    return ::fcntl(fd, F_SETLK, &whole) == 0;
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

status_t RuntimeDirectory::open(bool create, RuntimeDirectory* directory) {
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
    directory->mFd = std::move(fd);
    return OK;
}

std::string RuntimeDirectory::pathOf(const std::string& file) const {
    return "/proc/self/fd/" + std::to_string(fd()) + "/" + file;
}

/// Takes the lock that stands for a service's name. Its file goes when the service ends, so the one
/// that was locked may be no longer the one that others see: then it is tried again.
status_t ServiceSocket::takeName(const RuntimeDirectory& directory, const std::string& service) {
    const std::string file = service + ".lock";
    for (;;) {
        lock = ForkSafeFd(::openat(directory.fd(), file.c_str(),
                                   O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        if (!lock.ok()) {
            return lastError();
        }
        if (!lockFile(lock.get())) {
            return errno == EACCES || errno == EAGAIN ? status_t{ALREADY_EXISTS} : lastError();
        }
        struct stat locked = {};
        struct stat seen = {};
        if (::fstat(lock.get(), &locked) == 0 &&
            ::fstatat(directory.fd(), file.c_str(), &seen, AT_SYMLINK_NOFOLLOW) == 0 &&
            locked.st_ino == seen.st_ino && locked.st_dev == seen.st_dev) {
            return OK;
        }
    }
}

status_t ServiceSocket::publish(const RuntimeDirectory& directory, const std::string& service) {
    const status_t taken = takeName(directory, service);
    if (taken != OK) {
        return taken;
    }
    // Under a name of its own until it listens: whoever sees the socket can connect to it.
    const std::string file = service + ".sock";
    const std::string draft = service + ".new";
    sockaddr_un address;
    if (!fillAddress(directory.pathOf(draft), &address)) {
        return -ENAMETOOLONG;
    }
    ::unlinkat(directory.fd(), draft.c_str(), 0);
    listener = ForkSafeFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener.ok() ||
        ::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener.get(), SOMAXCONN) != 0 ||
        ::renameat(directory.fd(), draft.c_str(), directory.fd(), file.c_str()) != 0) {
        return lastError();
    }
    return OK;
}

void ServiceSocket::withdraw(const RuntimeDirectory& directory, const std::string& service) const {
    ::unlinkat(directory.fd(), (service + ".sock").c_str(), 0);
    ::unlinkat(directory.fd(), (service + ".lock").c_str(), 0);
}

ForkSafeFd connectTo(const RuntimeDirectory& directory, const std::string& service) {
    sockaddr_un address;
    // Without waiting, should the other process be stopped and its queue be full.
    ForkSafeFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket.ok() || !fillAddress(directory.pathOf(service + ".sock"), &address) ||
        ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::fcntl(socket.get(), F_SETFL, 0) != 0) {
        return ForkSafeFd();
    }
    return socket;
}

}  // namespace transport
}  // namespace android
