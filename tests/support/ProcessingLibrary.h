// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "common/AisrProcess.h"
#include "common/BufferInfo.h"
#include "support/ThreadState.h"

/**
 * The controlled builds of the sample processing library, as the tests see them: each entry reports
 * here before it does its work, and can be held up or made to fail.
 */
namespace processing {

/** One call of an entry. */
struct Call {
    std::string entry; /**< "AisrProcess" */
    void** context;
    int32_t tag;               /**< Of AisrSetParam; otherwise 0. */
    std::vector<uint8_t> data; /**< Its bytes as they arrived. */
    const void* address;       /**< Where they stood. */

    /** "AisrSetParam(2)", or the entry's name alone. */
    std::string text() const;
};

/**
 * Makes the loader find the build of this name below /system/lib64/, or none for an empty name, and
 * forgets the hook and the calls of an earlier test.
 */
void use(const std::string& build);

/** Called for each entry, on the caller's thread. A result other than 0 is the entry's status. */
using Hook = std::function<int32_t(const Call&)>;
void setHook(Hook hook);

/** A gate that stays shut until it is opened. */
class Gate {
public:
    void open() {
        const std::lock_guard<std::mutex> lock(mMutex);
        mIsOpen = true;
        mOpened.notify_all();
    }
    void pass() {
        std::unique_lock<std::mutex> lock(mMutex);
        waitUntil(mOpened, lock, "a gate to be opened", [this] { return mIsOpen; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mOpened;
    bool mIsOpen = false;
};

/** Holds the calls of this text up at the gate. */
void hold(const std::string& text, Gate* gate);

/** The calls so far. */
std::vector<Call> calls();
/** Their texts; forgets the calls. */
std::vector<std::string> takeTexts();
/** How many calls have this text. */
size_t count(const std::string& text);
/** Blocks until so many calls have this text; fails the test when they do not come. */
void waitFor(const std::string& text, size_t times = 1);

/**
 * De-initialises the library itself, after a hook has made its deinit entry fail and the adapter
 * has therefore given its session up.
 */
void endSession();

/** Planes of a small frame, and records that point to them. */
class Frame {
public:
    Aisr::BufferInfo info(uint64_t id) {
        return {id, mPlanes.data(), mPlanes.data() + kStride * kHeight, 32, kHeight, kStride, 0};
    }

private:
    static constexpr int32_t kHeight = 16;
    static constexpr int32_t kStride = 64;
    std::vector<uint8_t> mPlanes = std::vector<uint8_t>(kStride * kHeight * 3 / 2, 0x80);
};

}  // namespace processing
