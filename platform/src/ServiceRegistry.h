#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <binder/IBinder.h>
#include <utils/Errors.h>

#include "Connection.h"
#include "ForkSafeFd.h"
#include "RuntimeDirectory.h"

namespace android {
namespace transport {

class BinderProcess;

/// The services of this process, and the way to those of others. A thread, started with the first
/// service, answers the peers that look for one; so they are found also while the process runs no
/// calls yet. All operations may be called from any thread.
class ServiceRegistry {
public:
    explicit ServiceRegistry(BinderProcess& process) : mProcess(process) {}

    /// IServiceManager::addService.
    status_t add(const std::string& name, const sp<IBinder>& service);
    /// The service of this process or of another; null when there is none.
    sp<IBinder> find(const std::string& name);
    /// The same, waited for.
    sp<IBinder> waitFor(const std::string& name, int64_t timeoutNs);

private:
    struct Entry {
        sp<IBinder> service;
        ServiceSocket socket;
    };
    /// Somebody who has connected and has yet to say what for.
    struct Visitor {
        std::string service;
        ForkSafeFd socket;
        Peer peer;
        int64_t deadlineNs;
    };

    sp<IBinder> findHere(const std::string& name);
    sp<IBinder> findElsewhere(const std::string& name);
    bool askOnce(const RuntimeDirectory& directory, const std::string& name, int64_t deadlineNs,
                 sp<IBinder>* service);

    status_t startAnswering();
    void answerVisitors();
    void welcome(const std::string& service, int listener, std::vector<Visitor>* visitors);
    void answer(Visitor& visitor);
    static void removeSockets();

    BinderProcess& mProcess;
    std::mutex mLock;
    // All below guarded by mLock.
    std::map<std::string, Entry> mEntries;
    ForkSafeFd mChanged;  // counts up when there is a new listener; made with the thread
};

}  // namespace transport
}  // namespace android
