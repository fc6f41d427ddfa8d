// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <utils/StrongPointer.h>

#include <memory>
#include <utility>

#include "common/NoThrow.h"

/** What the static operations of both interfaces do. */
namespace com {
namespace tivora {
namespace displayengine {
namespace statics {

template <typename INTERFACE, typename PROXY>
android::sp<INTERFACE> asInterface(const android::sp<android::IBinder>& binder) {
    if (binder == nullptr) {
        return nullptr;
    }
    const android::sp<android::IInterface> local =
        binder->queryLocalInterface(INTERFACE::descriptor);
    if (local != nullptr) {
        return static_cast<INTERFACE*>(local.get());
    }
    return noThrow(android::sp<INTERFACE>(),
                   [&] { return android::sp<INTERFACE>(new PROXY(binder)); });
}

template <typename INTERFACE>
bool replaceDefault(std::unique_ptr<INTERFACE>& held, std::unique_ptr<INTERFACE> impl) {
    if (impl == nullptr) {
        return false;
    }
    held = std::move(impl);
    return true;
}

}  // namespace statics
}  // namespace displayengine
}  // namespace tivora
}  // namespace com
