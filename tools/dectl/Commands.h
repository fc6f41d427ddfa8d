// SPDX-License-Identifier: Apache-2.0
// The commands of dectl.
#pragma once

#include "Options.h"

namespace CLI {
class App;
}

namespace control {

/** Adds the commands to the command line; the one that is chosen becomes `options->command`. */
void addCommands(CLI::App* app, Options* options);

/**
 * Registers a callback that prints every event. The outcome's `watch` lasts until SIGINT or SIGTERM
 * or the service's death; a second signal ends the process at once. Starts the process's binder
 * threads.
 */
Outcome watchEvents(Session& session);

/** Asks the service for a description of its state, by binder's own call. */
Outcome dumpState(Session& session);

/**
 * What an engine would refuse or replace of the configuration that the service gives; empty when
 * the service does not support video enhancement, for then no engine asks.
 */
std::vector<std::string> configurationWarnings(Session& session);

}  // namespace control
