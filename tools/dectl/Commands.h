// SPDX-License-Identifier: Apache-2.0
// The commands of dectl.
#pragma once

#include "Session.h"

namespace control {

Outcome readPanelName(Session& session);
Outcome setBrightness(Session& session);
Outcome readReading(Session& session);
Outcome readGlobalReading(Session& session);
Outcome readFolding(Session& session);
Outcome readLocalHbm(Session& session);
Outcome setScene(Session& session);
Outcome setFrameRate(Session& session);
Outcome setCwb(Session& session);
Outcome readVideo(Session& session);

/**
 * Registers a callback and prints every event, until SIGINT or SIGTERM or the service's death; a
 * second signal ends the process at once. Starts the process's binder threads.
 */
Outcome watchEvents(Session& session);

}  // namespace control
