#include <binder/IInterface.h>

namespace android {

sp<IBinder> IInterface::asBinder(const IInterface* iface) {
    // The interface is not changed; its object is only reached through a non-const operation.
    return iface != nullptr ? sp<IBinder>(const_cast<IInterface*>(iface)->onAsBinder()) : nullptr;
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& iface) {
    return asBinder(iface.get());
}

}  // namespace android
