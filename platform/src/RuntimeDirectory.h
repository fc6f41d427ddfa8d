// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <utils/Errors.h>

#include "UniqueFd.h"

namespace android {
namespace transport {

/**
 * The directory in which every service has its socket, so that the directory is the registry.
 * Whoever may enter it may call the services, hence it belongs to one user alone.
 */
class RuntimeDirectory {
public:
    /** Names the directory for messages. */
    static std::string name();

    /**
     * Opens the directory, and makes it if asked to. NAME_NOT_FOUND when there is none;
     * PERMISSION_DENIED when it is another user's or open to others.
     */
    status_t open(bool create);

    /**
     * A path of a file in it, short enough for a socket however long the directory's own path is.
     */
    std::string pathOf(const std::string& file) const;

    /**
     * Listens for a service. ALREADY_EXISTS when a living process has the name; a socket that a
     * dead one has left is replaced.
     */
    status_t listen(const std::string& service, ForkSafeFd* listener) const;
    /** Removes a service's socket, for the end of its process. */
    void withdraw(const std::string& service) const;
    /** Connects to a service; negative when that fails, with the reason in errno. */
    ForkSafeFd connect(const std::string& service) const;

private:
    UniqueFd mFd;
};

}  // namespace transport
}  // namespace android
