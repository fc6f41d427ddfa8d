// SPDX-License-Identifier: Apache-2.0
#include <utils/Errors.h>

#include <system_error>

std::string android::statusToString(status_t status) {
    const std::string number = std::to_string(status);
    // Only a small negative number can be a negated system error.
    return status < 0 && status > -4096
               ? number + " (" + std::generic_category().message(-status) + ")"
               : number;
}
