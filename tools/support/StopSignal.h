// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

/**
 * Turns SIGINT and SIGTERM into a request to stop that any thread can wait for. The second signal
 * of a kind ends the process at once, in case something does not return. One object per process; it
 * stays in effect to the end of the process.
 */
class StopSignal {
public:
    /** Throws std::system_error when the system lacks descriptors. */
    StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /** Requests the stop, as a signal does. Any thread. */
    void request() const;

    /** Waits until the stop is requested, at most until `due`; true when it is requested. */
    bool waitUntil(std::chrono::steady_clock::time_point due) const;
};
