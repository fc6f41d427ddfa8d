// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <binder/Parcel.h>
#include <binder/Status.h>
#include <utils/Errors.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <tuple>

#include "aidl/CallStatus.h"
#include "aidl/ParcelItems.h"

/**
 * One transaction of a proxy, apart from its code and its items. `fallback` is called with the
 * default implementation when the other side does not know the code and a default is installed.
 */
namespace com {
namespace tivora {
namespace displayengine {

namespace proxy {

/** The items of a request, held by reference until the transaction has been made. */
template <typename... ITEMS>
std::tuple<const ITEMS&...> request(const ITEMS&... values) {
    return std::tuple<const ITEMS&...>(values...);
}

/** Where the items of a reply go. Items read before one that fails stay written. */
template <typename... ITEMS>
std::tuple<ITEMS*...> results(ITEMS*... values) {
    return std::tuple<ITEMS*...>(values...);
}

template <typename INTERFACE, typename CODE, typename... ITEMS>
android::status_t transact(INTERFACE& proxy, CODE code, uint32_t flags,
                           const std::tuple<const ITEMS&...>& request, android::Parcel* reply) {
    const android::sp<android::IBinder> remote = android::IInterface::asBinder(&proxy);
    android::Parcel data;
    data.markForBinder(remote);
    android::status_t status = data.writeInterfaceToken(proxy.getInterfaceDescriptor());
    if (status == android::OK) {
        status = std::apply(
            [&data](const ITEMS&... values) { return items::writeItems(data, values...); },
            request);
    }
    return status == android::OK ? remote->transact(static_cast<uint32_t>(code), data, reply, flags)
                                 : status;
}

/** A oneway transaction. Ok as soon as it has been handed over; nothing is read from a reply. */
template <typename INTERFACE, typename CODE, typename FALLBACK, typename... ITEMS>
android::binder::Status send(INTERFACE& proxy, CODE code,
                             const std::tuple<const ITEMS&...>& request, FALLBACK fallback) {
    return callStatus([&] {
        android::Parcel reply;
        const android::status_t status =
            transact(proxy, code, android::IBinder::FLAG_ONEWAY, request, &reply);
        if (status == android::UNKNOWN_TRANSACTION && INTERFACE::getDefaultImpl() != nullptr) {
            return fallback(*INTERFACE::getDefaultImpl());
        }
        return android::binder::Status::fromStatusT(status);
    });
}

/** A two-way transaction. The results are touched only as far as an ok reply was read. */
template <typename INTERFACE, typename CODE, typename FALLBACK, typename... ITEMS,
          typename... RESULTS>
android::binder::Status call(INTERFACE& proxy, CODE code,
                             const std::tuple<const ITEMS&...>& request,
                             const std::tuple<RESULTS*...>& results, FALLBACK fallback) {
    return callStatus([&] {
        android::Parcel reply;
        android::status_t status = transact(proxy, code, 0, request, &reply);
        if (status == android::UNKNOWN_TRANSACTION && INTERFACE::getDefaultImpl() != nullptr) {
            return fallback(*INTERFACE::getDefaultImpl());
        }
        android::binder::Status outcome;
        if (status == android::OK) {
            status = outcome.readFromParcel(reply);
        }
        if (status == android::OK && outcome.isOk()) {
            status = std::apply(
                [&reply](RESULTS*... values) { return items::readItems(reply, values...); },
                results);
        }
        if (status != android::OK) {
            outcome.setFromStatusT(status);
        }
        return outcome;
    });
}

}  // namespace proxy
}  // namespace displayengine
}  // namespace tivora
}  // namespace com
