// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <future>
#include <thread>
#include <utility>

namespace control {

/** The longest time to wait for the service: a call itself waits without limit. */
class TimeLimit {
public:
    explicit TimeLimit(double seconds) : mLimit(seconds) {}

    /**
     * Runs `step` on a thread of its own and returns its result. If that takes longer than the
     * limit, ends the process with kUnavailable, without any clean-up: `exit` would wait for the
     * call.
     */
    template <typename STEP>
    auto run(STEP step) const -> decltype(step()) {
        std::packaged_task<decltype(step())()> task(std::move(step));
        auto result = task.get_future();
        std::thread(std::move(task)).detach();
        if (result.wait_for(mLimit) == std::future_status::timeout) {
            endUnanswered();
        }
        return result.get();
    }

private:
    [[noreturn]] static void endUnanswered();

    const std::chrono::duration<double> mLimit;
};

}  // namespace control
