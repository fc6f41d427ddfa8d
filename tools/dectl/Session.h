// SPDX-License-Identifier: Apache-2.0
// What every command of dectl gets and gives back.
#pragma once

#include <utils/StrongPointer.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Output.h"
#include "aidl/IDisplayEngineService.h"
#include "client/DisplayEngineManager.h"

namespace control {

/** The arguments of all commands; each command has set its own. */
struct Arguments {
    std::vector<int32_t> levels;
    int32_t scene = 0;
    int32_t value = 0;
    std::string frameRate;
    std::string cwb;  // "on" or "off"
};

struct Session {
    const android::sp<com::tivora::displayengine::IDisplayEngineService> service;
    const android::sp<DisplayEngineManager> display;
    const Arguments arguments;
    const Output output;
};

struct Outcome {
    Json values;         /**< What to print: named values, or null for nothing. */
    std::string refusal; /**< What the service refused; empty when it did not. */
};

/** Blocks for calls of the service. May miss a failure that the library only logs. */
using Command = Outcome (*)(Session& session);

}  // namespace control
