// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gst/gst.h>

#include <string>

#include "media/VideoSession.h"

namespace displayengine::gst {

/** What became of one buffer, as its meta tells it. */
struct FrameOutcome {
    media::Outcome outcome = media::Outcome::kNotOffered;
    std::string reason;      /**< Why it was not offered, as a word. */
    std::string text;        /**< The same in words, or the engine's own words. */
    double milliseconds = 0; /**< Length of the engine's call. */
};

/** Registers the custom meta "displayengine-outcome". Once, when the plugin is loaded. */
void registerOutcomeMeta();

/**
 * Writes `outcome` to the buffer's meta. Takes `buffer` and returns it, or a copy that shares its
 * memory when others hold the buffer too.
 */
GstBuffer* markOutcome(GstBuffer* buffer, const FrameOutcome& outcome);

}  // namespace displayengine::gst
