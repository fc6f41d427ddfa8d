// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "support/Recording.h"

/**
 * A display engine service inside the test's own process, for the tests of the engine: it answers
 * as told and keeps what the engine asked.
 */
class EngineService : public protocol::RecordingService {
public:
    /** An abort timeout that no frame outlasts, however busy the machine. */
    static constexpr int32_t kPatientMs = 10'000;

    /** The configuration: sizes of 513x513 to 1280x720, at up to 30 frames per second. */
    struct Config {
        Int enable = 1;
        Int minWidth = 512;
        Int minHeight = 512;
        Int maxWidth = 720;
        Int maxHeight = 1280;
        Int maxFps = 30;
        Int monitorMaxFps = 38;
        Int monitorTolerance = 2;
        Int monitorRestore = 3;
        Int abortMs = 40;
        Int overloadMs = 33;
        Int toleranceCount = 5;
        Int toleranceMs = 10'000;
    };

    /** A new one, registered in place of an earlier one of this process. */
    static android::sp<EngineService> install();

    // What to answer beside the outcomes; set while no call is under way.
    Int support = 1;
    Config config;
    bool registerResult = true;
    std::function<void()> whenAsked; /**< Called for each getSupported, on the caller's thread. */
    std::function<void(const Callback&)> whenRegistered; /**< Likewise for registerCallbackEx. */

    /** The callback registered last, or null. */
    const Callback& callback() const { return mCallback; }

    Status registerCallbackEx(const Callback& callback, const Bundle& data, bool* result) override;

protected:
    Status respond(const std::string& call, const protocol::Answer& to) override;

private:
    Callback mCallback;
};
