#pragma once

#include <string>

#include <utils/Errors.h>

#include "ForkSafeFd.h"
#include "UniqueFd.h"

namespace android {
namespace transport {

/// The directory in which every service has its socket, so that the directory is the registry.
/// Whoever may enter it may call the services, hence it belongs to one user alone.
class RuntimeDirectory {
public:
    /// Opens the directory, and makes it if asked to. NAME_NOT_FOUND when there is none;
    /// PERMISSION_DENIED when it is another user's or open to others.
    static status_t open(bool create, RuntimeDirectory* directory);

    /// A path of a file in it, short enough for a socket however long the directory's own path is.
    std::string pathOf(const std::string& file) const;
    int fd() const { return mFd.get(); }

    /// Names the directory for messages.
    static std::string name();

private:
    UniqueFd mFd;
};

/// A service's socket and the lock that makes it the only one of its name. The lock is the
/// kernel's, so it ends with the process, however that ends.
struct ServiceSocket {
    ForkSafeFd lock;
    ForkSafeFd listener;

    /// Takes the name and listens. ALREADY_EXISTS when another living process has it. A socket that
    /// a dead process has left is replaced.
    status_t publish(const RuntimeDirectory& directory, const std::string& service);
    /// Removes what publish made, for the end of the process. The name is free then.
    void withdraw(const RuntimeDirectory& directory, const std::string& service) const;

private:
    status_t takeName(const RuntimeDirectory& directory, const std::string& service);
};

/// Connects to a service's socket; an invalid descriptor when nobody listens.
ForkSafeFd connectTo(const RuntimeDirectory& directory, const std::string& service);

}  // namespace transport
}  // namespace android
