// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace player {

/**
 * Turns SIGINT and SIGTERM into a request to stop. The second signal ends the process at once, in
 * case something does not come back. One object per process.
 */
class StopSignal {
public:
    /** Throws std::system_error when the system lacks descriptors. */
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    bool isRequested() const;

    /** Waits until a point in time or until the stop is requested; true when it is. */
    bool waitUntil(std::chrono::steady_clock::time_point due) const;
};

}  // namespace player
