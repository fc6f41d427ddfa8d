// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <unordered_map>

#include <utils/Mutex.h>

#include "Connection.h"
#include "ThreadPool.h"
#include "UniqueFd.h"

namespace android {
namespace transport {

class ServiceRegistry;

/**
 * Everything binder of this process, never destroyed: calls go on while the process exits. A forked
 * child gets a new one as soon as it asks.
 */
class BinderProcess {
public:
    static BinderProcess& self();

    /** A random number that names this process image to its peers. */
    uint64_t instance() const { return mInstance; }
    ThreadPool& pool() { return mPool; }
    ServiceRegistry& registry() { return *mRegistry; }

    /** Makes sure that exit waits for the calls that are running; for the first pool thread. */
    void stopPoolAtExit();

    /** The living connection to the process image `instance`, null if there is none. */
    std::shared_ptr<Connection> connectionTo(uint64_t instance);
    /** Takes up a connection that was agreed on with its peer, and has it watched. */
    std::shared_ptr<Connection> addConnection(ForkSafeFd socket, const Peer& peer);
    void removeConnection(Connection& connection);

    /**
     * Two processes may reach out to each other at the same time, and yet only one connection may
     * come of it. For as long as this lives, this process is reaching out to `instance`.
     */
    class Outreach {
    public:
        Outreach(BinderProcess& process, uint64_t instance);
        ~Outreach();

    private:
        BinderProcess& mProcess;
        const uint64_t mInstance;
    };
    /**
     * Takes up the connection of a peer that reaches out to this process. `welcome` tells the peer
     * so, before anything else can be sent. False, without a welcome, when there is a connection
     * already or this process's own attempt has precedence; the socket is then still the caller's.
     */
    bool acceptConnection(ForkSafeFd& socket, const Peer& peer,
                          const std::function<void(Connection&)>& welcome);

private:
    BinderProcess();
    ~BinderProcess();

    const uint32_t mGeneration;
    const uint64_t mInstance;
    ThreadPool mPool;
    const std::unique_ptr<ServiceRegistry> mRegistry;

    Mutex mLock;
    std::unordered_map<uint64_t, std::shared_ptr<Connection>> mConnections GUARDED_BY(mLock);
    std::multiset<uint64_t> mOutreaches GUARDED_BY(mLock);
    bool mStopsAtExit GUARDED_BY(mLock) = false;
};

}  // namespace transport
}  // namespace android
