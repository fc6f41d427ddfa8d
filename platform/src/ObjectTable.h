// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include <binder/BpBinder.h>
#include <binder/IBinder.h>
#include <utils/Mutex.h>

namespace android {
namespace transport {

class Connection;

/**
 * The objects that one connection knows: those of this process that the peer holds, and the proxies
 * of the peer's. Both ends count how often an object was sent. A proxy that dies gives back as many
 * references as it has received, so one that is on its way meanwhile is not lost.
 */
class ObjectTable {
public:
    /** Holds `object` for the peer, once more than before, and gives its handle. */
    uint64_t exportObject(const sp<IBinder>& object);
    /** The object that the peer holds under `handle`, null if there is none. */
    sp<IBinder> exported(uint64_t handle);
    /**
     * Gives `count` references back; false when the peer does not hold as many. What the last one
     * held goes into `dropped`, for the caller to let go of without locks.
     */
    bool release(uint64_t handle, uint64_t count, sp<IBinder>* dropped);

    /** The proxy of the peer's object, which has just been received once more. */
    sp<BpBinder> receive(const std::shared_ptr<Connection>& connection, uint64_t handle);
    /** Removes a proxy that is being destroyed; the number of references to give back. */
    uint64_t forget(BpBinder* proxy);

    /** Takes everything out once the peer is gone. The table holds nothing afterwards. */
    void close(std::vector<sp<IBinder>>* exports, std::vector<sp<BpBinder>>* proxies);

private:
    struct Export {
        sp<IBinder> object;
        uint64_t sent;
    };

    Mutex mLock;
    bool mClosed GUARDED_BY(mLock) = false;
    uint64_t mNextHandle GUARDED_BY(mLock) = 1;
    std::unordered_map<uint64_t, Export> mExports GUARDED_BY(mLock);
    std::unordered_map<IBinder*, uint64_t> mHandles GUARDED_BY(mLock);
    std::unordered_map<uint64_t, wp<BpBinder>> mProxies GUARDED_BY(mLock);
};

}  // namespace transport
}  // namespace android
