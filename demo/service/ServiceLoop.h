// SPDX-License-Identifier: Apache-2.0
// Main loop of the sample service: commands, timed events and the signals that end it.
#pragma once

#include <chrono>
#include <deque>
#include <string>

#include "Options.h"
#include "SampleService.h"

namespace sample {

/**
 * Waits for commands on standard input, for the times of the toggles and for SIGTERM and SIGINT.
 */
class ServiceLoop {
public:
    /**
     * Blocks SIGTERM and SIGINT for this thread and those that it starts; construct it before any
     * other thread runs. Throws std::system_error when the system lacks descriptors.
     */
    explicit ServiceLoop(const std::vector<Toggle>& toggles);
    ~ServiceLoop();
    ServiceLoop(const ServiceLoop&) = delete;
    ServiceLoop& operator=(const ServiceLoop&) = delete;

    /** Runs until a signal or the command "quit". The end of standard input does not end it. */
    void run(SampleService* service);

private:
    using Clock = std::chrono::steady_clock;

    int millisecondsToToggle() const;
    void runToggles(SampleService* service);
    bool readCommands(SampleService* service);
    bool execute(const std::string& command, SampleService* service);

    int mSignals;
    bool mInputOpen = true;
    std::string mInput;  // an unfinished line
    std::deque<Toggle> mToggles;
    Clock::time_point mStart;
};

}  // namespace sample
