// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <binder/IBinder.h>
#include <utils/Errors.h>
#include <utils/Mutex.h>

#include "Connection.h"
#include "RuntimeDirectory.h"
#include "UniqueFd.h"

namespace android {
namespace transport {

class BinderProcess;

/**
 * The services of this process, and the way to those of others. Each service has a thread that
 * answers the peers that look for it; so it is found also while the process runs no calls yet. All
 * operations may be called from any thread.
 */
class ServiceRegistry {
public:
    explicit ServiceRegistry(BinderProcess& process) : mProcess(process) {}

    /** IServiceManager::addService. */
    status_t add(const std::string& name, const sp<IBinder>& service);
    /** The service of this process or of another; null when there is none. */
    sp<IBinder> find(const std::string& name);
    /** The same, waited for. */
    sp<IBinder> waitFor(const std::string& name, int64_t timeoutNs);

private:
    struct Entry {
        sp<IBinder> service;
        ForkSafeFd listener;
    };

    sp<IBinder> findHere(const std::string& name);
    sp<IBinder> findElsewhere(const std::string& name);
    bool askOnce(const RuntimeDirectory& directory, const std::string& name, int64_t deadlineNs,
                 sp<IBinder>* service);

    void acceptVisitors(const std::string& service, int listener);
    void answer(const std::string& service, ForkSafeFd& socket, Peer& peer);
    static void removeSockets();

    BinderProcess& mProcess;
    Mutex mLock;
    std::map<std::string, Entry> mEntries GUARDED_BY(mLock);
};

}  // namespace transport
}  // namespace android
