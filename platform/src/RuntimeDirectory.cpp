#include "RuntimeDirectory.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <android/log.h>

namespace android {
namespace transport {
namespace {

constexpr const char* kTag = "binder";

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

status_t failed(const char* what, const std::string& where) {
    const int error = errno;
    __android_log_print(ANDROID_LOG_ERROR, kTag, "cannot %s %s: %s", what, where.c_str(),
                        std::strerror(error));
    return error == EACCES || error == EPERM ? status_t{PERMISSION_DENIED} : -error;
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
        return failed("create the runtime directory", path);
    }
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd.ok()) {
        return errno == ENOENT && !create ? status_t{NAME_NOT_FOUND}
                                          : failed("open the runtime directory", path);
    }
    // Looked at through the descriptor, so it is what is used from here on.
    struct stat state = {};
    if (::fstat(fd.get(), &state) != 0) {
        return failed("examine the runtime directory", path);
    }
    if (state.st_uid != ::geteuid() || (state.st_mode & 077) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "the runtime directory %s must belong to user %u alone (mode 0700), "
                            "but it belongs to user %u with mode %04o",
                            path.c_str(), static_cast<unsigned>(::geteuid()),
                            static_cast<unsigned>(state.st_uid),
                            static_cast<unsigned>(state.st_mode & 07777));
        return PERMISSION_DENIED;
    }
    directory->mFd = std::move(fd);
    return OK;
}

std::string RuntimeDirectory::pathOf(const std::string& file) const {
    return "/proc/self/fd/" + std::to_string(fd()) + "/" + file;
}

std::string socketFileOf(const std::string& service) {
    return service + ".sock";
}

status_t ServiceSocket::publish(const RuntimeDirectory& directory, const std::string& service) {
    const std::string file = socketFileOf(service);
    const std::string where = RuntimeDirectory::name() + "/" + file;
    // The lock has a file of its own, which stays: it must outlast every socket of the name.
    lock = ForkSafeFd(::openat(directory.fd(), (service + ".lock").c_str(),
                               O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock.ok()) {
        return failed("lock", where);
    }
    if (!lockFile(lock.get())) {
        if (errno != EACCES && errno != EAGAIN) {
            return failed("lock", where);
        }
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "the service %s is registered by another process already",
                            service.c_str());
        return ALREADY_EXISTS;
    }
    // Under a name of its own until it listens: whoever sees the socket can connect to it.
    const std::string draft = file + ".new";
    sockaddr_un address;
    if (!fillAddress(directory.pathOf(draft), &address)) {
        errno = ENAMETOOLONG;
        return failed("register", where);
    }
    ::unlinkat(directory.fd(), draft.c_str(), 0);
    listener = ForkSafeFd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener.ok() ||
        ::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener.get(), SOMAXCONN) != 0 ||
        ::renameat(directory.fd(), draft.c_str(), directory.fd(), file.c_str()) != 0) {
        return failed("register", where);
    }
    return OK;
}

ForkSafeFd connectTo(const RuntimeDirectory& directory, const std::string& service) {
    sockaddr_un address;
    ForkSafeFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket.ok() || !fillAddress(directory.pathOf(socketFileOf(service)), &address) ||
        ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        return ForkSafeFd();
    }
    return socket;
}

}  // namespace transport
}  // namespace android
