// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cerrno>
#include <cstdint>
#include <string>

namespace android {

/** Result of an operation: OK (0) or one of the negative codes below. */
using status_t = int32_t;

enum : status_t {
    OK = 0,
    UNKNOWN_ERROR = INT32_MIN,
    NO_MEMORY = -ENOMEM,
    INVALID_OPERATION = -ENOSYS,
    BAD_VALUE = -EINVAL,
    BAD_TYPE = UNKNOWN_ERROR + 1,
    NAME_NOT_FOUND = -ENOENT,
    PERMISSION_DENIED = -EPERM,
    NO_INIT = -ENODEV,
    ALREADY_EXISTS = -EEXIST,
    DEAD_OBJECT = -EPIPE,
    FAILED_TRANSACTION = UNKNOWN_ERROR + 2,
    NOT_ENOUGH_DATA = -ENODATA,
    UNKNOWN_TRANSACTION = -EBADMSG,
    UNEXPECTED_NULL = UNKNOWN_ERROR + 8,
};

/** Name of a code above ("DEAD_OBJECT"), otherwise its number and the system's text for it. */
std::string statusToString(status_t status);

}  // namespace android
