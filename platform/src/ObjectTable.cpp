// SPDX-License-Identifier: Apache-2.0
#include "ObjectTable.h"

namespace android::transport {

ObjectTable::ObjectTable(const sp<IBinder>& service) {
    if (service != nullptr) {
        mExports[kServiceHandle] = {service, UINT64_MAX / 2};  // its lookups are not counted
    }
}

uint64_t ObjectTable::exportObject(const sp<IBinder>& object) {
    const Mutex::Autolock lock(mLock);
    const auto service = mExports.find(kServiceHandle);
    const bool isService = service != mExports.end() && service->second.object == object;
    const uint64_t handle = isService ? kServiceHandle : reinterpret_cast<uintptr_t>(object.get());
    Export& entry = mExports[handle];
    entry.object = object;
    ++entry.sent;
    return handle;
}

sp<IBinder> ObjectTable::exported(uint64_t handle) {
    const Mutex::Autolock lock(mLock);
    const auto found = mExports.find(handle);
    return found != mExports.end() ? found->second.object : nullptr;
}

bool ObjectTable::release(uint64_t handle, uint64_t count) {
    Export dropped;  // without the lock
    const Mutex::Autolock lock(mLock);
    const auto found = mExports.find(handle);
    if (found == mExports.end() || found->second.sent < count) {
        return false;
    }
    found->second.sent -= count;
    if (found->second.sent == 0) {
        dropped = std::move(found->second);
        mExports.erase(found);
    }
    return true;
}

void ObjectTable::dropExports() {
    Exports dropped;  // without the lock
    const Mutex::Autolock lock(mLock);
    dropped.swap(mExports);
}

sp<BpBinder> ObjectTable::receive(const std::shared_ptr<Session>& session, uint64_t handle) {
    const Mutex::Autolock lock(mLock);
    wp<BpBinder>& known = mProxies[handle];
    sp<BpBinder> proxy = known.promote();
    if (proxy == nullptr) {
        // Not known, or just being destroyed, and then it gives back what it has received itself.
        proxy = new BpBinder(session, handle);
        known = proxy;
    }
    ++proxy->mReceived;
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

sp<BpBinder> ObjectTable::takeProxy() {
    const Mutex::Autolock lock(mLock);
    sp<BpBinder> proxy;
    while (proxy == nullptr && !mProxies.empty()) {
        proxy = mProxies.begin()->second.promote();
        mProxies.erase(mProxies.begin());
    }
    return proxy;
}

}  // namespace android::transport
