// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "support/ProtocolPeerObjects.h"

/**
 * A display engine service inside the test's own process, for the tests of the engine: it answers
 * as told and keeps what the engine asked.
 */
class EngineService : public protocol::RecordingService {
public:
    using Config = std::vector<int32_t>;

    /** The 13 values of a service that admits 513x513 to 1280x720 at up to 30 frames per second. */
    static Config defaultConfig();

    /** The process's one service, registered on first use; it answers as at the start again. */
    static android::sp<EngineService> install();

    // What to answer; set while no call is under way.
    int32_t support;
    Config config;
    Status supportStatus;
    Status configStatus;
    Status registerStatus;
    bool registerResult;
    std::function<void()> whenAsked; /**< Called for each getSupported, on the caller's thread. */
    std::function<void(const Callback&)> whenRegistered; /**< Likewise for registerCallbackEx. */

    /** How often an operation of this name was called. */
    size_t count(const std::string& operation) const { return journal.count(operation); }
    /** The calls in order, with their bundles' entries; forgets them. */
    std::vector<std::string> takeCalls() { return journal.take(); }
    /** The callback registered last, or null. */
    Callback callback() const {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mCallback;
    }

    Status getSupported(int32_t feature, int32_t* result) override;
    Status getEffectExByData(int32_t feature, const Bundle& data, std::vector<int32_t>* status,
                             int32_t* result) override;
    Status registerCallbackEx(const Callback& callback, const Bundle& data, bool* result) override;

private:
    void reset();

    mutable std::mutex mMutex;
    Callback mCallback;  // guarded by mMutex
};
