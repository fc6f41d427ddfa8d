// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <unordered_map>

#include "BpBinder.h"

namespace android::transport {

/** The handle of a service's own object, which its clients have without being sent it. */
constexpr uint64_t kServiceHandle = 1;

/**
 * The objects that one session knows: those of this process that the peer holds, and the proxies of
 * the peer's. Both ends count how often an object was sent. A proxy that dies gives back as many
 * references as it has received, so one that is on its way meanwhile is not lost.
 */
class ObjectTable {
public:
    /** `service` is null at the client's end. */
    explicit ObjectTable(const sp<IBinder>& service) {
        if (service != nullptr) {
            mExports[kServiceHandle] = {service, UINT64_MAX / 2};  // lookups are not counted
        }
    }

    /** Holds `object` for the peer, once more than before, and gives its handle. */
    uint64_t exportObject(const sp<IBinder>& object) {
        const Mutex::Autolock lock(mLock);
        const auto service = mExports.find(kServiceHandle);
        const bool isService = service != mExports.end() && service->second.object == object;
        const auto handle = isService ? kServiceHandle : reinterpret_cast<uintptr_t>(object.get());
        Export& entry = mExports[handle];
        entry.object = object;
        ++entry.sent;
        return handle;
    }

    /** The object that the peer holds under `handle`, null if there is none. */
    sp<IBinder> exported(uint64_t handle) {
        const Mutex::Autolock lock(mLock);
        const auto found = mExports.find(handle);
        return found != mExports.end() ? found->second.object : nullptr;
    }

    /** Takes `count` references back; false when the peer does not hold as many. */
    bool release(uint64_t handle, uint64_t count) {
        Export dropped;  // without the lock
        const Mutex::Autolock lock(mLock);
        const auto found = mExports.find(handle);
        const bool isHeld = found != mExports.end() && found->second.sent >= count;
        if (isHeld && (found->second.sent -= count) == 0) {
            dropped = std::move(found->second);
            mExports.erase(found);
        }
        return isHeld;
    }

    /** Lets go of what the peer held, once it is gone. */
    void dropExports() {
        std::unordered_map<uint64_t, Export> dropped;  // without the lock
        const Mutex::Autolock lock(mLock);
        dropped.swap(mExports);
    }

    /** The proxy of the peer's object, which has just been received once more. */
    sp<BpBinder> receive(const std::shared_ptr<Session>& session, uint64_t handle) {
        const Mutex::Autolock lock(mLock);
        wp<BpBinder>& known = mProxies[handle];
        sp<BpBinder> proxy = known.promote();
        if (proxy == nullptr) {
            // Not known, or being destroyed, and then it gives back what it has received itself.
            proxy = new BpBinder(session, handle);
            known = proxy;
        }
        ++proxy->mReceived;
        return proxy;
    }

    /** Removes a proxy that is being destroyed; the number of references to give back. */
    uint64_t forget(BpBinder* proxy) {
        const Mutex::Autolock lock(mLock);
        const auto found = mProxies.find(proxy->mHandle);
        if (found != mProxies.end() && found->second.unsafe_get() == proxy) {
            mProxies.erase(found);
        }
        return proxy->mReceived;
    }

    /** Takes any proxy out that still lives; null when there is none left. */
    sp<BpBinder> takeProxy() {
        const Mutex::Autolock lock(mLock);
        sp<BpBinder> proxy;
        while (proxy == nullptr && !mProxies.empty()) {
            proxy = mProxies.begin()->second.promote();
            mProxies.erase(mProxies.begin());
        }
        return proxy;
    }

private:
    struct Export {
        sp<IBinder> object;
        uint64_t sent = 0;
    };

    Mutex mLock;
    std::unordered_map<uint64_t, Export> mExports GUARDED_BY(mLock);
    std::unordered_map<uint64_t, wp<BpBinder>> mProxies GUARDED_BY(mLock);
};

}  // namespace android::transport
