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
    explicit ObjectTable(const sp<IBinder>& service);

    /** Holds `object` for the peer, once more than before, and gives its handle. */
    uint64_t exportObject(const sp<IBinder>& object);
    /** The object that the peer holds under `handle`, null if there is none. */
    sp<IBinder> exported(uint64_t handle);
    /** Takes `count` references back; false when the peer does not hold as many. */
    bool release(uint64_t handle, uint64_t count);
    /** Lets go of what the peer held, once it is gone. */
    void dropExports();

    /** The proxy of the peer's object, which has just been received once more. */
    sp<BpBinder> receive(const std::shared_ptr<Session>& session, uint64_t handle);
    /** Removes a proxy that is being destroyed; the number of references to give back. */
    uint64_t forget(BpBinder* proxy);
    /** Takes any proxy out that still lives; null when there is none left. */
    sp<BpBinder> takeProxy();

private:
    struct Export {
        sp<IBinder> object;
        uint64_t sent = 0;
    };
    using Exports = std::unordered_map<uint64_t, Export>;

    Mutex mLock;
    Exports mExports GUARDED_BY(mLock);
    std::unordered_map<uint64_t, wp<BpBinder>> mProxies GUARDED_BY(mLock);
};

}  // namespace android::transport
