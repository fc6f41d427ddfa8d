// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

/** Longest value with its terminating NUL. */
#define PROPERTY_VALUE_MAX 92

extern "C" {

/**
 * True (1) for "1", "y", "yes", "on" and "true", false (0) for "0", "n", "no", "off" and "false",
 * otherwise, and without memory, `default_value`.
 *
 * A value set in this process takes precedence over the file that the environment variable
 * DISPLAYENGINE_PROPERTIES names. The file is read at each call. It has one key=value a line,
 * blanks aside; '#' begins a comment line, and the last line of a key counts.
 */
int8_t property_get_bool(const char* key, int8_t default_value);

/**
 * Sets `key` for this process. Returns 0, or -1 for an empty key, a value too long, or without
 * memory. Values of read-only names ("ro.") can be set too: no system image fixes them here.
 */
int property_set(const char* key, const char* value);
}
