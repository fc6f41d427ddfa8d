// SPDX-License-Identifier: Apache-2.0
#include <binder/BpBinder.h>

#include <algorithm>
#include <utility>

#include <binder/Parcel.h>

#include "Connection.h"

namespace android {

BpBinder::BpBinder(std::shared_ptr<transport::Connection> connection, uint64_t handle)
    : mConnection(std::move(connection)), mHandle(handle) {}

BpBinder::~BpBinder() {
    mConnection->returnProxy(this);
}

const String16& BpBinder::getInterfaceDescriptor() const {
    {
        const Mutex::Autolock lock(mLock);
        if (mDescriptorKnown) {
            return mDescriptor;
        }
    }
    Parcel data;
    Parcel reply;
    String16 descriptor;
    // The call changes nothing in the proxy; only its declaration is not const.
    const bool answered =
        const_cast<BpBinder*>(this)->transact(INTERFACE_TRANSACTION, data, &reply) == OK &&
        reply.readString16(&descriptor) == OK;
    const Mutex::Autolock lock(mLock);
    if (answered && !mDescriptorKnown) {
        mDescriptor = descriptor;
        mDescriptorKnown = true;
    }
    return mDescriptor;
}

bool BpBinder::isBinderAlive() const {
    return !mConnection->isDead();
}

status_t BpBinder::pingBinder() {
    Parcel data;
    Parcel reply;
    return transact(PING_TRANSACTION, data, &reply);
}

status_t BpBinder::dump(int fd, const Vector<String16>& args) {
    Parcel data;
    Parcel reply;
    status_t status = data.writeDupFileDescriptor(fd);
    if (status == OK) {
        status = data.writeInt32(static_cast<int32_t>(args.size()));
    }
    for (size_t i = 0; status == OK && i < args.size(); ++i) {
        status = data.writeString16(args[i]);
    }
    return status == OK ? transact(DUMP_TRANSACTION, data, &reply) : status;
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    return mConnection->call(mHandle, code, data, reply, flags);
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    if (recipient == nullptr) {
        return BAD_VALUE;
    }
    const Mutex::Autolock lock(mLock);
    if (mObituariesSent || mConnection->isDead()) {
        return DEAD_OBJECT;
    }
    mObituaries.push_back({recipient, cookie, flags});
    return OK;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                 wp<DeathRecipient>* outRecipient) {
    Obituary removed;  // its recipient is let go of without the lock
    const Mutex::Autolock lock(mLock);
    if (mObituariesSent) {
        return DEAD_OBJECT;
    }
    const DeathRecipient* const wanted = recipient.unsafe_get();
    const auto found =
        std::find_if(mObituaries.begin(), mObituaries.end(), [&](const Obituary& obituary) {
            // Without a recipient, the cookie alone tells which one is meant.
            return obituary.flags == flags &&
                   (wanted != nullptr ? obituary.recipient.get() == wanted
                                      : obituary.cookie == cookie);
        });
    if (found == mObituaries.end()) {
        return NAME_NOT_FOUND;
    }
    removed = std::move(*found);
    mObituaries.erase(found);
    if (outRecipient != nullptr) {
        *outRecipient = removed.recipient;
    }
    return OK;
}

bool BpBinder::hasDeathRecipients() const {
    const Mutex::Autolock lock(mLock);
    return !mObituaries.empty();
}

void BpBinder::reportDeath() {
    std::vector<Obituary> obituaries;
    {
        const Mutex::Autolock lock(mLock);
        mObituariesSent = true;
        obituaries.swap(mObituaries);
    }
    for (const Obituary& obituary : obituaries) {
        obituary.recipient->binderDied(this);
    }
}

}  // namespace android
