// SPDX-License-Identifier: Apache-2.0
// The library under test, opened and called directly.
#pragma once

#include <array>
#include <chrono>
#include <string>

#include "Check.h"
#include "Frame.h"
#include "common/AisrProcess.h"

namespace checker {

constexpr std::array<const char*, 6> kEntries = {"AisrInit",    "AisrDeinit",   "AisrProcess",
                                                 "AisrDoClean", "AisrGetParam", "AisrSetParam"};

/** "AISR_ERR_FATAL(1)", or "7, which is no status". */
std::string statusText(int32_t status);

/**
 * Calls of the entries, each with its place kept for a crash or a hang. An exception that leaves an
 * entry ends the check as failed. The entries' own rules about threads apply.
 */
class Library {
public:
    /** Opens it with all symbols bound; a failure ends the check as failed. */
    explicit Library(const Settings& settings);
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /** The address of an entry, or null. */
    void* find(const char* entry) const;
    /** Closes it; no entry may be called any more. */
    void close();

    int32_t setLogLevel(int32_t level);
    int32_t init();
    int32_t deinit();
    int32_t submit(const Frame& frame) { return submit(frame, &frame.list()); }
    /** With a list of the caller's. */
    int32_t submit(const Frame& frame, const void* list);
    int32_t process(const Frame& frame);
    /** Reads 48 bytes at `buffer`. */
    int32_t cancel(const void* buffer);
    /** Any parameter; `what` names the call in the report. */
    int32_t setParam(const std::string& what, int32_t tag, const void* data, uint64_t size,
                     const Frame* frame = nullptr);
    /** Submits and, if that succeeds, processes. */
    int32_t enhance(const Frame& frame);

    // The same; a failure ends the check as failed.
    void start(int32_t level = 1);
    void end();
    void mustEnhance(const Frame& frame, const std::string& when = "");

    bool hasContext() const { return mContext != nullptr; }

private:
    template <typename FUNC>
    int32_t call(const std::string& what, const Frame* frame, FUNC func);

    void* mHandle = nullptr;
    void* mContext = nullptr;
};

/** The time since it was made, in milliseconds. */
class Stopwatch {
public:
    double milliseconds() const {
        return std::chrono::duration<double, std::milli>(Clock::now() - mStart).count();
    }

private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point mStart = Clock::now();
};

/** Sleeps; for waits that are themselves what is checked, never for an outcome. */
void pause(double milliseconds);

}  // namespace checker
