// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>

namespace android {

/** An object of this process that others can call: derive and override onTransact. */
class BBinder : public IBinder {
public:
    const String16& getInterfaceDescriptor() const override;
    bool isBinderAlive() const override { return true; }
    status_t pingBinder() override { return OK; }
    /** Writes nothing; for a subclass to override. */
    status_t dump(int /*fd*/, const Vector<String16>& /*args*/) override { return OK; }
    status_t transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags = 0) final;
    status_t linkToDeath(const sp<DeathRecipient>&, void* = nullptr, uint32_t = 0) override {
        return INVALID_OPERATION;
    }
    status_t unlinkToDeath(const wp<DeathRecipient>&, void* = nullptr, uint32_t = 0,
                           wp<DeathRecipient>* = nullptr) override {
        return INVALID_OPERATION;
    }
    BBinder* localBinder() override { return this; }

protected:
    ~BBinder() override = default;

    /**
     * Runs one call, on a binder thread or, for a call from this process, on the caller's.
     * `reply` is never null for a call from another process, a oneway one included. This one
     * answers PING_TRANSACTION, INTERFACE_TRANSACTION and DUMP_TRANSACTION, else
     * UNKNOWN_TRANSACTION.
     */
    virtual status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                uint32_t flags = 0);
};

/** The part of an interface's proxy that holds the remote object. */
class BpRefBase : public virtual RefBase {
protected:
    explicit BpRefBase(const sp<IBinder>& o) : mRemote(o) {}
    ~BpRefBase() override = default;

    IBinder* remote() const { return mRemote.get(); }

private:
    const sp<IBinder> mRemote;
};

}  // namespace android
