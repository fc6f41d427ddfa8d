// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>

#include <utils/Errors.h>

#include "UniqueFd.h"

namespace android::transport {

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

    /** A path of a file in it, short enough for a socket however long the directory's own is. */
    std::string pathOf(const std::string& file) const;

    /**
     * Makes the process the owner of a service's name for as long as it holds `lock`, which the
     * kernel gives up when the process ends, however it ends. ALREADY_EXISTS: another one has it.
     */
    status_t own(const std::string& service, ForkSafeFd* lock) const;
    /** Listens for a service, in the place of a socket that a dead process has left behind. */
    status_t listen(const std::string& service, ForkSafeFd* listener) const;
    /** Removes a service's files, for the end of its process. */
    void withdraw(const std::string& service) const;

    /** The number of the service's socket file, another one for each that is made; 0 for none. */
    ino_t socketNumber(const std::string& service) const;
    /** Connects to a service without waiting for its process; nothing when that fails. */
    ForkSafeFd connect(const std::string& service) const;

private:
    UniqueFd mFd;
};

}  // namespace android::transport
