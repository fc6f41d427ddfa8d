// SPDX-License-Identifier: Apache-2.0
#include "BpBinder.h"

#include <algorithm>
#include <utility>

#include <binder/Parcel.h>

#include "Session.h"

namespace android {

BpBinder::~BpBinder() {
    mSession->giveBack(this);
}

const String16& BpBinder::getInterfaceDescriptor() const {
    const Mutex::Autolock lock(mDescriptorLock);
    Parcel reply;
    if (!mDescriptorKnown) {
        mDescriptorKnown =
            mSession->call(mHandle, INTERFACE_TRANSACTION, Parcel(), &reply, 0) == OK &&
            reply.readString16(&mDescriptor) == OK;
    }
    return mDescriptor;
}

bool BpBinder::isBinderAlive() const {
    return !mSession->isDead();
}

status_t BpBinder::pingBinder() {
    return transact(PING_TRANSACTION, Parcel(), nullptr, 0);
}

status_t BpBinder::dump(int fd, const Vector<String16>& args) {
    Parcel data;
    status_t status = data.writeDupFileDescriptor(fd);
    if (status == OK) {
        status = data.writeInt32(static_cast<int32_t>(args.size()));
    }
    for (size_t i = 0; status == OK && i < args.size(); ++i) {
        status = data.writeString16(args[i]);
    }
    return status == OK ? transact(DUMP_TRANSACTION, data, nullptr, 0) : status;
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    return mSession->call(mHandle, code, data, reply, flags);
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* /*cookie*/,
                               uint32_t /*flags*/) {
    if (recipient == nullptr) {
        return BAD_VALUE;
    }
    const Mutex::Autolock lock(mLock);
    if (mDeathReported || mSession->isDead()) {
        return DEAD_OBJECT;
    }
    mRecipients.push_back(recipient);
    return OK;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* /*cookie*/,
                                 uint32_t /*flags*/, wp<DeathRecipient>* outRecipient) {
    sp<DeathRecipient> removed;  // let go of without the lock
    const Mutex::Autolock lock(mLock);
    const auto found = std::find(mRecipients.begin(), mRecipients.end(), recipient.promote());
    if (mDeathReported || found == mRecipients.end()) {
        return mDeathReported ? DEAD_OBJECT : NAME_NOT_FOUND;
    }
    removed = std::move(*found);
    mRecipients.erase(found);
    if (outRecipient != nullptr) {
        *outRecipient = removed;
    }
    return OK;
}

void BpBinder::reportDeath() {
    Mutex::Autolock lock(mLock);
    mDeathReported = true;
    const std::vector<sp<DeathRecipient>> recipients = std::move(mRecipients);
    lock.unlock();
    for (const sp<DeathRecipient>& recipient : recipients) {
        recipient->binderDied(this);
    }
}

}  // namespace android
