// SPDX-License-Identifier: Apache-2.0
#pragma once

/**
 * Returns what `body` returns, or `failure` when it ends by an exception: the one place where the
 * library turns an allocation that failed, or another exception, into the failure value of an
 * operation. Log statements stand outside `body`, since they print the name of the function that
 * they stand in.
 */
template <typename RESULT, typename BODY>
RESULT noThrow(RESULT failure, BODY body) {
    try {
        return body();
    } catch (...) {
        return failure;
    }
}
