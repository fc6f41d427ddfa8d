// SPDX-License-Identifier: Apache-2.0
#include <utils/Errors.h>

#include <system_error>

namespace android {
namespace {

#define NAMED(status) \
    { status, #status }
constexpr struct {
    status_t status;
    const char* name;
} kNames[] = {
    NAMED(OK),
    NAMED(UNKNOWN_ERROR),
    NAMED(NO_MEMORY),
    NAMED(INVALID_OPERATION),
    NAMED(BAD_VALUE),
    NAMED(BAD_TYPE),
    NAMED(NAME_NOT_FOUND),
    NAMED(PERMISSION_DENIED),
    NAMED(NO_INIT),
    NAMED(ALREADY_EXISTS),
    NAMED(DEAD_OBJECT),
    NAMED(FAILED_TRANSACTION),
    NAMED(NOT_ENOUGH_DATA),
    NAMED(UNKNOWN_TRANSACTION),
    NAMED(UNEXPECTED_NULL),
};
#undef NAMED

}  // namespace

std::string statusToString(status_t status) {
    for (const auto& known : kNames) {
        if (known.status == status) {
            return known.name;
        }
    }
    const std::string number = std::to_string(status);
    // Only a small negative number can be a negated system error.
    return status < 0 && status > -4096
               ? number + " (" + std::generic_category().message(-status) + ")"
               : number;
}

}  // namespace android
