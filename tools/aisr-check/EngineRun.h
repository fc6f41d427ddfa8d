// SPDX-License-Identifier: Apache-2.0
// The real engine in a check's process, with a service of its own.
#pragma once

#include <string>

#include "Frame.h"
#include "Settings.h"

namespace checker {

/** What the engine has logged of the frames. */
struct EngineLog {
    int expired = 0;          /**< The caller waited for the abort limit. */
    int slow = 0;             /**< Successful, from the overload limit on. */
    int refused = 0;          /**< An earlier frame was still queued. */
    int timedOut = 0;         /**< Failed with AISR_ERR_TIMEOUT, as a cancelled frame should. */
    bool isLatched = false;   /**< The overload has ended the stream's enhancement. */
    std::string frameFailure; /**< The last frame that failed otherwise; empty for none. */
    std::string failure;      /**< The last other warning; empty for none. */
};

/** Collects the engine's messages from now on. A frame is slow from `overloadMs` on. */
void collectEngineLog(bool isVerbose, int overloadMs);
EngineLog engineLog();

/** The limits that a service would configure. */
struct Limits {
    int overloadMs;
    int abortMs;
};

/**
 * Registers a service in this process and has the engine made, which finds the library by the
 * loader. A failure ends the check as failed. Once per process.
 */
void startEngine(const Settings& settings, const Limits& limits);

/** Has the engine enhance `frame`, and makes it the next one. Returns what that took, in ms. */
double offerToEngine(Frame* frame);

/**
 * Streams frames at the settings' rate for `seconds`, or until the overload has ended the
 * enhancement. Returns how many frames were offered.
 */
int streamThroughEngine(const Settings& settings, Frame* frame, double seconds);

/** Reports a stream of `frames` frames; what depends on the machine's load is a warning. */
void judgeStream(const Settings& settings, int frames);

}  // namespace checker
