// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Binder.h>

namespace android {

/** The base of every interface that is called through binder. */
class IInterface : public virtual RefBase {
public:
    /** The object behind an interface; null for a null interface. */
    static sp<IBinder> asBinder(const IInterface* iface);
    static sp<IBinder> asBinder(const sp<IInterface>& iface) { return asBinder(iface.get()); }

protected:
    ~IInterface() override = default;

    virtual IBinder* onAsBinder() = 0;
};

/** Base of the side that implements INTERFACE. */
template <typename INTERFACE>
class BnInterface : public INTERFACE, public BBinder {
public:
    sp<IInterface> queryLocalInterface(const String16& name) override {
        // Not the static one, which may be gone while the process exits.
        if (name == getInterfaceDescriptor()) {
            return sp<IInterface>(this);
        }
        return nullptr;
    }
    const String16& getInterfaceDescriptor() const override {
        return INTERFACE::getInterfaceDescriptor();
    }

protected:
    IBinder* onAsBinder() override { return this; }
};

/** Base of the side that calls INTERFACE. */
template <typename INTERFACE>
class BpInterface : public INTERFACE, public BpRefBase {
public:
    explicit BpInterface(const sp<IBinder>& remote) : BpRefBase(remote) {}

protected:
    IBinder* onAsBinder() override { return remote(); }
};

}  // namespace android
