// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Status.h>
#include <utils/Errors.h>

#include "common/NoThrow.h"

namespace com {
namespace tivora {
namespace displayengine {

/**
 * The Status of a call, including what is made for it, such as its data: what `body` returns, or
 * NO_MEMORY when that ends by an exception.
 */
template <typename BODY>
android::binder::Status callStatus(BODY body) {
    return noThrow(android::binder::Status::fromStatusT(android::NO_MEMORY), body);
}

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
