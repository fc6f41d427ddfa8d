// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <utils/String16.h>

#include <cstring>
#include <functional>
#include <string>

#include "support/Recording.h"

/**
 * A display engine service inside the test's own process, for the tests of the engine: it answers
 * as told and keeps what the engine asked.
 */
class EngineService : public protocol::RecordingService {
public:
    /** An abort timeout that no frame outlasts, however busy the machine. */
    static constexpr int32_t kPatientMs = 10'000;

    /** The configuration: sizes of 513x513 to 1280x720, at up to 30 frames per second. In
     * the answer's order. */
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
        Int size = 13; /**< How many of these the service answers with. */
    };

    /** A new one, registered in place of an earlier one of this process. */
    static android::sp<EngineService> install() {
        const android::sp<EngineService> service = new EngineService;
        EXPECT_EQ(android::defaultServiceManager()->addService(
                      android::String16("DisplayEngineService"), service),
                  android::OK);
        return service;
    }

    // What to answer beside the outcomes; set while no call is under way.
    Int support = 1;
    Config config;
    bool registerResult = true;
    std::function<void()> whenAsked; /**< Called for each getSupported, on the caller's thread. */
    std::function<void(const Callback&)> whenRegistered; /**< Likewise for registerCallbackEx. */

    /** The callback registered last, or null. */
    const Callback& callback() const { return mCallback; }

    Status registerCallbackEx(const Callback& callback, const Bundle& data, bool* result) override {
        mCallback = callback;
        if (whenRegistered) {
            whenRegistered(callback);
        }
        const Status status = RecordingService::registerCallbackEx(callback, data, result);
        *result = registerResult;
        return status;
    }

protected:
    Status respond(const std::string& call, const protocol::Answer& to) override {
        const Status outcome = RecordingService::respond(call, to);
        if (call.rfind("getSupported ", 0) == 0) {
            if (whenAsked) {
                whenAsked();
            }
            *to.result = support;
        } else if (call.rfind("getEffectExByData ", 0) == 0) {
            to.values->resize(sizeof(config) / sizeof(Int));
            std::memcpy(to.values->data(), &config, sizeof(config));
            to.values->resize(static_cast<size_t>(config.size));
        }
        return outcome;
    }

private:
    Callback mCallback;
};
