// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "media/LogTap.h"
#include "media/VideoSession.h"

/**
 * What the engine's messages say: what became of a frame, why none is wanted, what the service has
 * configured. That the worker is done with a frame goes on to HeldFrames. Any thread may call.
 */
namespace displayengine::media::messages {

/** What the messages of one call for a frame say; for the thread that makes the call. */
struct Call {
    std::optional<Outcome> verdict; /**< None if they do not tell. */
    std::string text;               /**< Empty on success. */
};

/** The conditions that a session reports values for. */
enum Condition { kSizeCondition, kRateCondition, kConditions };

/** Takes memory once, and may throw then: before the first message. */
void prepare();
/** May throw, without memory for a text; what the text was for is taken in all the same. */
void read(const logtap::Message& message);
/** What this thread's messages are about from now on; null for no call. */
void setCall(Call* call);

/** The health monitor's last verdict, in its words; none for a healthy stream. */
std::optional<std::string> unhealthy();
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
