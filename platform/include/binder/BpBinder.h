// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <binder/IBinder.h>
#include <utils/Mutex.h>

namespace android {

namespace transport {
class Connection;
class ObjectTable;
}  // namespace transport

/**
 * The proxy of an object in another process. While it lives it holds a reference to that object.
 * There is one proxy for each remote object and process, so proxies can be compared by address.
 */
class BpBinder : public IBinder {
public:
    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override;
    status_t pingBinder() override;
    status_t dump(int fd, const Vector<String16>& args) override;
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply,
                      uint32_t flags = 0) override;
    status_t linkToDeath(const sp<DeathRecipient>& recipient, void* cookie = nullptr,
                         uint32_t flags = 0) override;
    status_t unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie = nullptr,
                           uint32_t flags = 0, wp<DeathRecipient>* outRecipient = nullptr) override;
    BpBinder* remoteBinder() override { return this; }

protected:
    ~BpBinder() override;

private:
    friend class transport::Connection;
    friend class transport::ObjectTable;

    struct Obituary {
        sp<DeathRecipient> recipient;
        void* cookie = nullptr;
        uint32_t flags = 0;
    };

    BpBinder(std::shared_ptr<transport::Connection> connection, uint64_t handle);
    BpBinder(const BpBinder&) = delete;
    BpBinder& operator=(const BpBinder&) = delete;

    bool hasDeathRecipients() const;
    /** Tells the death recipients, each once. Runs on the thread pool. */
    void reportDeath();

    const std::shared_ptr<transport::Connection> mConnection;
    const uint64_t mHandle;
    /** How often the peer has sent the object: what has to be given back. Guarded by the table. */
    uint64_t mReceived = 1;

    mutable Mutex mLock;
    mutable String16 mDescriptor GUARDED_BY(mLock);  // constant once it is known
    mutable bool mDescriptorKnown GUARDED_BY(mLock) = false;
    bool mObituariesSent GUARDED_BY(mLock) = false;
    std::vector<Obituary> mObituaries GUARDED_BY(mLock);
};

}  // namespace android
