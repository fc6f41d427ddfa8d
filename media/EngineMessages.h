// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "media/LogTap.h"
#include "media/VideoSession.h"

/**
 * What the engine's messages say: what became of a frame, why none is wanted, what the service has
 * configured. That the worker is done with a frame goes on to heldframes. Any thread may call.
 */
namespace displayengine::media::messages {

/** The conditions that a session reports values for. */
enum Condition { kSizeCondition, kRateCondition, kConditions };

/** May throw, without memory for a text; what the text was for is taken in all the same. */
void read(const logtap::Message& message);
/** Takes the outcome of this thread's call for a frame, and its text; null for no call. */
void setCall(Result* call);

/** Forgets what was said about the conditions. */
void forgetConditions();
bool isKnown(Condition condition);
std::optional<Limits> limits();

// These set the reason first, and may then throw.
/** The condition that does not hold, of an engine that is switched on. */
void explainConditions(Wanted* wanted);
/** Why the engine did not come up. */
void explainBringUp(Wanted* wanted);

}  // namespace displayengine::media::messages
