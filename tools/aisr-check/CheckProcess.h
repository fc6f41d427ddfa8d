// SPDX-License-Identifier: Apache-2.0
// One check in a process of its own.
#pragma once

#include "Check.h"
#include "Report.h"
#include "tools/support/StopSignal.h"

namespace checker {

enum class Result { kOk, kWarn, kFail, kSkip };

/** What a check has found. */
struct Outcome {
    const Check* check = nullptr;
    Result result = Result::kOk;
    std::vector<std::string> failures;
    std::vector<std::string> warnings;
    std::vector<std::string> notes;
    std::vector<SizeTimes> times;
    double seconds = 0;
};

/** Starts the checks' processes. */
class CheckStarter {
public:
    /**
     * `command` starts the tool itself with the user's options. Prepares a private folder, through
     * which the loader finds the library under the name that the engine asks for. Throws
     * std::exception.
     */
    CheckStarter(const Settings& settings, const std::vector<std::string>& command);
    ~CheckStarter();
    CheckStarter(const CheckStarter&) = delete;
    CheckStarter& operator=(const CheckStarter&) = delete;

    /**
     * Runs one check to its end: a crash, a hang or an exit of its process is a failure. Throws
     * std::runtime_error when the tool is interrupted.
     */
    Outcome run(const Check& check) const;

private:
    const Settings mSettings;
    const std::vector<std::string> mCommand;
    std::string mFolder;
    const StopSignal mStop;
};

/** What the process of a check does; its exit status. */
int runCheckHere(const std::string& name, const Settings& settings);

}  // namespace checker
