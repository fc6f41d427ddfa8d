// SPDX-License-Identifier: Apache-2.0
#include "ObjectTable.h"

#include <utility>

namespace android {
namespace transport {

uint64_t ObjectTable::exportObject(const sp<IBinder>& object) {
    const Mutex::Autolock lock(mLock);
    const auto known = mHandles.find(object.get());
    if (known != mHandles.end()) {
        ++mExports.at(known->second).sent;
        return known->second;
    }
    const uint64_t handle = mNextHandle++;
    if (!mClosed) {
        mExports.emplace(handle, Export{object, 1});
        mHandles.emplace(object.get(), handle);
    }
    return handle;
}

sp<IBinder> ObjectTable::exported(uint64_t handle) {
    const Mutex::Autolock lock(mLock);
    const auto found = mExports.find(handle);
    return found != mExports.end() ? found->second.object : nullptr;
}

bool ObjectTable::release(uint64_t handle, uint64_t count, sp<IBinder>* dropped) {
    const Mutex::Autolock lock(mLock);
    const auto found = mExports.find(handle);
    if (found == mExports.end() || found->second.sent < count) {
        return false;
    }
    found->second.sent -= count;
    if (found->second.sent == 0) {
        *dropped = std::move(found->second.object);
        mHandles.erase(dropped->get());
        mExports.erase(found);
    }
    return true;
}

sp<BpBinder> ObjectTable::receive(const std::shared_ptr<Connection>& connection, uint64_t handle) {
    const Mutex::Autolock lock(mLock);
    const auto found = mProxies.find(handle);
    if (found != mProxies.end()) {
        if (sp<BpBinder> proxy = found->second.promote()) {
            ++proxy->mReceived;
            return proxy;
        }
    }
    // Not known, or its proxy is just being destroyed, and gives back what that one has received.
    const sp<BpBinder> proxy(new BpBinder(connection, handle));
    if (!mClosed) {
        mProxies[handle] = proxy;
    }
    return proxy;
}

uint64_t ObjectTable::forget(BpBinder* proxy) {
    const Mutex::Autolock lock(mLock);
    const auto found = mProxies.find(proxy->mHandle);
    if (found != mProxies.end() && found->second.unsafe_get() == proxy) {
        mProxies.erase(found);
    }
    return proxy->mReceived;
}

void ObjectTable::close(std::vector<sp<IBinder>>* exports, std::vector<sp<BpBinder>>* proxies) {
    const Mutex::Autolock lock(mLock);
    mClosed = true;
    for (auto& [handle, entry] : mExports) {
        exports->push_back(std::move(entry.object));
    }
    for (auto& [handle, entry] : mProxies) {
        if (sp<BpBinder> proxy = entry.promote()) {
            proxies->push_back(std::move(proxy));
        }
    }
    mExports.clear();
    mHandles.clear();
    mProxies.clear();
}

}  // namespace transport
}  // namespace android
