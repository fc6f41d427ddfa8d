// SPDX-License-Identifier: Apache-2.0
#include "BinderProcess.h"

#include <sys/random.h>

#include <atomic>
#include <cstdlib>

#include "ServiceRegistry.h"

namespace android {
namespace transport {
namespace {

uint64_t randomInstance() {
    // Never fails for so few bytes.
    uint64_t instance = 0;
    [[maybe_unused]] const ssize_t size = ::getrandom(&instance, sizeof(instance), 0);
    return instance;
}

}  // namespace

BinderProcess& BinderProcess::self() {
    // Leaked on purpose, also what a fork leaves behind: its locks may be held by threads that the
    // child does not have.
    static std::atomic<BinderProcess*> current{nullptr};
    BinderProcess* process = current.load(std::memory_order_acquire);
    while (process == nullptr || process->mGeneration != forkGeneration()) {
        auto* const fresh = new BinderProcess();
        if (current.compare_exchange_strong(process, fresh)) {
            return *fresh;
        }
        delete fresh;
    }
    return *process;
}

BinderProcess::BinderProcess()
    : mGeneration(forkGeneration()),
      mInstance(randomInstance()),
      mRegistry(new ServiceRegistry(*this)) {}

BinderProcess::~BinderProcess() = default;

void BinderProcess::stopPoolAtExit() {
    const Mutex::Autolock lock(mLock);
    if (!mStopsAtExit) {
        mStopsAtExit = true;
        std::atexit([] { self().pool().stop(); });
    }
}

std::shared_ptr<Connection> BinderProcess::connectionTo(uint64_t instance) {
    const Mutex::Autolock lock(mLock);
    const auto found = mConnections.find(instance);
    return found != mConnections.end() ? found->second : nullptr;
}

std::shared_ptr<Connection> BinderProcess::addConnection(ForkSafeFd socket, const Peer& peer) {
    const auto connection = std::make_shared<Connection>(*this, std::move(socket), peer);
    std::vector<std::shared_ptr<Connection>> others;
    {
        const Mutex::Autolock lock(mLock);
        for (const auto& [instance, other] : mConnections) {
            others.push_back(other);
        }
        mConnections[peer.instance] = connection;
    }
    mPool.watch(connection);
    // Without a pool nobody else looks at those that are no longer used.
    for (const std::shared_ptr<Connection>& other : others) {
        other->closeIfDeserted();
    }
    return connection;
}

bool BinderProcess::acceptConnection(ForkSafeFd& socket, const Peer& peer,
                                     const std::function<void(Connection&)>& welcome) {
    std::shared_ptr<Connection> connection;
    {
        const Mutex::Autolock lock(mLock);
        const bool precedes = mInstance < peer.instance && mOutreaches.count(peer.instance) > 0;
        if (precedes || mConnections.count(peer.instance) > 0) {
            return false;
        }
        connection = std::make_shared<Connection>(*this, std::move(socket), peer);
        welcome(*connection);
        mConnections.emplace(peer.instance, connection);
    }
    mPool.watch(connection);
    return true;
}

void BinderProcess::removeConnection(Connection& connection) {
    mPool.unwatch(&connection);
    std::shared_ptr<Connection> last;  // let go of without the lock
    const Mutex::Autolock lock(mLock);
    const auto found = mConnections.find(connection.peer().instance);
    if (found != mConnections.end() && found->second.get() == &connection) {
        last = std::move(found->second);
        mConnections.erase(found);
    }
}

BinderProcess::Outreach::Outreach(BinderProcess& process, uint64_t instance)
    : mProcess(process), mInstance(instance) {
    const Mutex::Autolock lock(mProcess.mLock);
    mProcess.mOutreaches.insert(mInstance);
}

BinderProcess::Outreach::~Outreach() {
    const Mutex::Autolock lock(mProcess.mLock);
    mProcess.mOutreaches.erase(mProcess.mOutreaches.find(mInstance));
}

}  // namespace transport
}  // namespace android
