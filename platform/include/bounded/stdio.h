// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdarg>
#include <cstdio>

/**
 * Formatted input of the platform's bounds-checked library. Of its conversions only numbers are
 * used here, and for these it is the standard one: the number of conversions made, or EOF.
 */
__attribute__((format(scanf, 2, 3))) inline int sscanf_s(const char* buffer, const char* format,
                                                         ...) {
    va_list arguments;
    va_start(arguments, format);
    const int count = std::vsscanf(buffer, format, arguments);
    va_end(arguments);
    return count;
}
