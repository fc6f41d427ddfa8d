// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Parcel.h>
#include <binder/Status.h>
#include <utils/Errors.h>

#include <tuple>

#include "aidl/ParcelItems.h"
#include "common/NoThrow.h"

/** What a stub does with an incoming transaction, apart from the operation and its items. */
namespace com {
namespace tivora {
namespace displayengine {
namespace stub {

/** Where the items of a request go. */
template <typename... ITEMS>
std::tuple<ITEMS*...> arguments(ITEMS*... values) {
    return std::tuple<ITEMS*...>(values...);
}

/** The items of a reply, held by reference until the operation has set them. */
template <typename... ITEMS>
std::tuple<const ITEMS&...> results(const ITEMS&... values) {
    return std::tuple<const ITEMS&...>(values...);
}

/** Reads the request of `stub`'s own interface; nothing is read when it is meant for another. */
template <typename STUB, typename... ARGUMENTS>
android::status_t readRequest(STUB& stub, const android::Parcel& data,
                              const std::tuple<ARGUMENTS*...>& arguments) {
    if (!data.checkInterface(&stub)) {
        return android::BAD_TYPE;
    }
    return std::apply([&data](ARGUMENTS*... values) { return items::readItems(data, values...); },
                      arguments);
}

/** A two-way transaction: request, operation, status, and the results when the status is ok. */
template <typename STUB, typename OPERATION, typename... ARGUMENTS, typename... RESULTS>
android::status_t answer(STUB& stub, const android::Parcel& data, android::Parcel* reply,
                         const std::tuple<ARGUMENTS*...>& arguments,
                         const std::tuple<const RESULTS&...>& results, OPERATION operation) {
    android::status_t status = readRequest(stub, data, arguments);
    if (status != android::OK) {
        return status;
    }
    const android::binder::Status outcome = operation();
    status = outcome.writeToParcel(reply);
    if (status != android::OK || !outcome.isOk()) {
        return status;
    }
    return std::apply(
        [reply](const RESULTS&... values) { return items::writeItems(*reply, values...); },
        results);
}

/** A null where a value is required is the caller's mistake, and is told so in the reply. */
inline android::status_t reportNull(android::status_t status, android::Parcel* reply) {
    if (status != android::UNEXPECTED_NULL) {
        return status;
    }
    return android::binder::Status::fromExceptionCode(android::binder::Status::EX_NULL_POINTER)
        .writeToParcel(reply);
}

}  // namespace stub
}  // namespace displayengine
}  // namespace tivora
}  // namespace com
