// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>

#include <binder/IServiceManager.h>

#include "RuntimeDirectory.h"
#include "Session.h"

namespace android::transport {

/**
 * Everything binder of this process: its services, its sessions with those of other processes, and
 * the gate. Never destroyed, since calls go on while the process exits. A forked child gets a new
 * one as soon as it asks. All operations may be called from any thread.
 */
class BinderProcess : public IServiceManager {
public:
    static BinderProcess& self();

    sp<IBinder> getService(const String16& name) const override;
    sp<IBinder> checkService(const String16& name) const override;
    status_t addService(const String16& name, const sp<IBinder>& service, bool allowIsolated,
                        int dumpsysFlags) override;
    /** Lets go of a client's session that has ended. */
    void forget(const Session& session);

    /** ProcessState::startThreadPool: peers may make this process run something from now on. */
    void openGate();

    /**
     * Whatever a peer makes this process run passes the gate: nothing before it opens, and nothing
     * once the process exits, which waits for what is running. One at a time for a thread.
     */
    class Pass {
    public:
        explicit Pass(BinderProcess& process);
        Pass(const Pass&) = delete;
        ~Pass();

    private:
        BinderProcess& mProcess;
    };

protected:
    /** The service manager is no object of its own that could be handed on. */
    IBinder* onAsBinder() override { return nullptr; }

private:
    struct Service {
        sp<IBinder> object;
        ForkSafeFd lock;
        ForkSafeFd listener;
    };
    /** A session of this process as a client. */
    struct Known {
        std::string name;
        ino_t socketNumber;
        std::shared_ptr<Session> session;
    };

    sp<IBinder> findHere(const std::string& name) const;
    std::shared_ptr<Session> findSession(const std::string& name) const;
    void acceptClients(const std::string& name, int listener);
    void removeFiles();
    void closeGate();

    const uint32_t mGeneration = forkGeneration();
    mutable Mutex mLock;
    std::map<std::string, Service> mServices GUARDED_BY(mLock);
    mutable std::vector<Known> mSessions GUARDED_BY(mLock);

    mutable Mutex mGateLock;
    std::condition_variable mGateChanged;
    enum { kNotYetOpen, kOpen, kClosed } mGate GUARDED_BY(mGateLock) = kNotYetOpen;
    size_t mInside GUARDED_BY(mGateLock) = 0;
};

}  // namespace android::transport
