// SPDX-License-Identifier: Apache-2.0
#include <utils/Errors.h>

#include <system_error>

namespace android {

std::string statusToString(status_t status) {
    switch (status) {
#define STATUS_CASE(name) \
    case name:            \
        return #name
        STATUS_CASE(OK);
        STATUS_CASE(UNKNOWN_ERROR);
        STATUS_CASE(NO_MEMORY);
        STATUS_CASE(INVALID_OPERATION);
        STATUS_CASE(BAD_VALUE);
        STATUS_CASE(BAD_TYPE);
        STATUS_CASE(NAME_NOT_FOUND);
        STATUS_CASE(PERMISSION_DENIED);
        STATUS_CASE(NO_INIT);
        STATUS_CASE(ALREADY_EXISTS);
        STATUS_CASE(DEAD_OBJECT);
        STATUS_CASE(FAILED_TRANSACTION);
        STATUS_CASE(BAD_INDEX);
        STATUS_CASE(NOT_ENOUGH_DATA);
        STATUS_CASE(WOULD_BLOCK);
        STATUS_CASE(TIMED_OUT);
        STATUS_CASE(UNKNOWN_TRANSACTION);
        STATUS_CASE(FDS_NOT_ALLOWED);
        STATUS_CASE(UNEXPECTED_NULL);
#undef STATUS_CASE
        default:
            break;
    }
    const std::string number = std::to_string(status);
    // Only a small negative number can be a negated system error.
    return status < 0 && status > -4096
               ? number + " (" + std::generic_category().message(-status) + ")"
               : number;
}

}  // namespace android
