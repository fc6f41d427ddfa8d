// SPDX-License-Identifier: Apache-2.0
#include <binder/Binder.h>

#include <binder/IInterface.h>
#include <binder/Parcel.h>

namespace android {

sp<IInterface> IBinder::queryLocalInterface(const String16& /*descriptor*/) {
    return nullptr;
}

const String16& BBinder::getInterfaceDescriptor() const {
    // Never destroyed: calls may still arrive while the process exits.
    static const String16* const none = new String16();
    return *none;
}

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    data.setDataPosition(0);
    const status_t status = onTransact(code, data, reply, flags);
    if (reply != nullptr) {
        reply->setDataPosition(0);
    }
    return status;
}

namespace {

status_t dumpFromParcel(BBinder& object, const Parcel& data) {
    const int fd = data.readFileDescriptor();
    int32_t count = 0;
    if (fd < 0 || data.readInt32(&count) != OK) {
        return BAD_VALUE;
    }
    Vector<String16> args;
    for (int32_t i = 0; i < count; ++i) {
        String16 arg;
        const status_t status = data.readString16(&arg);
        if (status != OK) {
            return status;
        }
        args.push_back(arg);
    }
    return object.dump(fd, args);
}

}  // namespace

status_t BBinder::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t /*flags*/) {
    switch (code) {
        case PING_TRANSACTION:
            return pingBinder();
        case INTERFACE_TRANSACTION:
            return reply != nullptr ? reply->writeString16(getInterfaceDescriptor())
                                    : status_t{BAD_VALUE};
        case DUMP_TRANSACTION:
            return dumpFromParcel(*this, data);
        default:
            return UNKNOWN_TRANSACTION;
    }
}

sp<IBinder> IInterface::asBinder(const IInterface* iface) {
    // The interface is not changed; its object is only reached through a non-const operation.
    return iface != nullptr ? sp<IBinder>(const_cast<IInterface*>(iface)->onAsBinder()) : nullptr;
}

}  // namespace android
