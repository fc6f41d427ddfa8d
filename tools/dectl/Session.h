// SPDX-License-Identifier: Apache-2.0
// What every command of dectl gets and returns.
#pragma once

#include <utils/StrongPointer.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Output.h"
#include "aidl/IDisplayEngineService.h"
#include "client/DisplayEngineManager.h"

namespace control {

/** Exit codes of the program. */
enum ExitCode : int {
    kDone = 0,
    kRefused = 1,     /**< The service did not do what it was asked for. */
    kUnavailable = 2, /**< No service, none that answers, or the command line is wrong. */
};

/** The arguments of all commands; each command has set its own. */
struct Arguments {
    std::vector<int32_t> levels;
    int32_t scene = 0;
    int32_t value = 0;
    std::string frameRate;
    std::string cwb; /**< "on" or "off". */
};

struct Session {
    const android::sp<com::tivora::displayengine::IDisplayEngineService> service;
    const android::sp<DisplayEngineManager> display;
    const Arguments arguments;
    const Output output;
};

struct Outcome {
    Json values;         /**< What to print: named values, a text, or null for nothing. */
    std::string refusal; /**< What the service refused; empty when it did not. */
    std::function<void()> watch =
        {}; /**< The rest of the command, which takes as long as it likes. */
    std::vector<std::string> warnings = {}; /**< What the caller should know, when it was done. */
};

/** Calls the service and waits for it. May miss a failure that the library only logs. */
using Command = Outcome (*)(Session& session);

}  // namespace control
