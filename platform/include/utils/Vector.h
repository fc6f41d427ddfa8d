// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

namespace android {

/** The platform's growable array, as far as binder's dump arguments need one. */
template <typename T>
using Vector = std::vector<T>;

}  // namespace android
