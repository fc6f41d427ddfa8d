// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <vector>

#include <binder/IBinder.h>

#include "Mutex.h"

namespace android {

namespace transport {
class ObjectTable;
class Session;
}  // namespace transport

/**
 * The proxy of an object in another process. While it lives it holds a reference to that object.
 * There is one proxy for each remote object and session, so proxies can be compared by address.
 */
class BpBinder : public IBinder {
public:
    BpBinder(std::shared_ptr<transport::Session> session, uint64_t handle)
        : mSession(std::move(session)), mHandle(handle) {}

    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override;
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie,
                         uint32_t flags) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                           wp<DeathRecipient>* outRecipient) override;
    BpBinder* remoteBinder() override { return this; }

    /** Tells the death recipients, each once. */
    void reportDeath();

protected:
    ~BpBinder() override;

private:
    friend class transport::ObjectTable;
    friend class transport::Session;

    const std::shared_ptr<transport::Session> mSession;
    const uint64_t mHandle;
    /** How often the peer has sent the object: what has to be given back. Guarded by the table. */
    uint64_t mReceived = 0;

    mutable Mutex mDescriptorLock;                             // held while the object is asked
    mutable String16 mDescriptor GUARDED_BY(mDescriptorLock);  // constant once it is known
    mutable bool mDescriptorKnown GUARDED_BY(mDescriptorLock) = false;
    Mutex mLock;
    bool mDeathReported GUARDED_BY(mLock) = false;
    std::vector<sp<DeathRecipient>> mRecipients GUARDED_BY(mLock);
};

}  // namespace android
