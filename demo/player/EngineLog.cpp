// SPDX-License-Identifier: Apache-2.0
#include "EngineLog.h"

#include <android/log.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace player {
namespace {

/** The engine's own tag, which its adapter's tag extends, and the facade's. */
constexpr char kEngineTag[] = "DE N AISR";
constexpr char kFacadeTag[] = "DE N VideoEngine";
constexpr char kTransportTag[] = "binder";

bool startsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

struct Message {
    std::string function;
    std::string text;
};

/** A message reads "function:line: text"; a verbose one has "LOGV " in front. */
Message split(const std::string& message) {
    const size_t begin = startsWith(message, "LOGV ") ? 5 : 0;
    const size_t colon = message.find(':', begin);
    const size_t end = colon == std::string::npos ? colon : message.find(": ", colon + 1);
    if (end == std::string::npos) {
        return {std::string(), message};
    }
    return {message.substr(begin, colon - begin), message.substr(end + 2)};
}

struct Collector {
    EngineLog log;
    std::thread::id player;
    bool isVerbose;
};

std::atomic<Collector*> gCollector{nullptr};

void collect(const __android_log_message* message) {
    Collector& collector = *gCollector.load();
    if (collector.isVerbose) {
        __android_log_stderr_logger(message);
    }
    collector.log.note(message->tag != nullptr ? message->tag : "",
                       message->message != nullptr ? message->message : "",
                       message->priority >= ANDROID_LOG_WARN,
                       std::this_thread::get_id() == collector.player);
}

std::optional<uint64_t> frameIndex(const std::string& text) {
    constexpr char kKey[] = " idx=";
    const size_t at = text.find(kKey);
    if (at == std::string::npos) {
        return std::nullopt;
    }
    return std::strtoull(text.c_str() + at + sizeof(kKey) - 1, nullptr, 10);
}

}  // namespace

void EngineLog::note(const std::string& tag, const std::string& message, bool isWarning,
                     bool fromPlayer) {
    if (tag == kTransportTag && startsWith(message, "the runtime directory")) {
        const DeMutexLock lock(mMutex);
        mState.transportTrouble = message;
    }
    if (!startsWith(tag, kEngineTag) && tag != kFacadeTag) {
        return;
    }
    const Message parts = split(message);
    const DeMutexLock lock(mMutex);
    if (isWarning) {
        mState.lastWarning = parts.text;
        mState.firstWarning = mState.firstWarning.empty() ? parts.text : mState.firstWarning;
    }
    if (tag != kEngineTag) {
        return;
    }
    if (parts.function == "doEnhance") {
        // The worker takes the frames in order and names each one when it is done with it, also
        // when nobody waits for it any more.
        if (const std::optional<uint64_t> index = frameIndex(parts.text)) {
            mState.lastCompleted = index;
        }
    } else if (parts.function == "updateEnhance") {
        noteCondition(parts.text);
    } else if (parts.function == "getConfig") {
        noteConfiguration(parts.text);
    } else if (parts.function == "isUnhealthy") {
        noteMonitor(parts.text);
    } else if (fromPlayer) {
        noteCall(parts.function, parts.text);
    }
}

/** The messages with which the call for one frame ends. */
void EngineLog::noteCall(const std::string& function, const std::string& text) {
    if (function == "getReady" || (function == "isReady" && startsWith(text, "Retry count:"))) {
        mVerdict = Outcome::kRefusedNotReady;
    } else if (function != "enhance") {
        return;
    } else if (startsWith(text, "Invalid input:")) {
        mVerdict = Outcome::kRefusedInvalid;
    } else if (startsWith(text, "Overload!")) {
        mVerdict = Outcome::kRefusedOverload;
    } else if (startsWith(text, "Tasks is not empty!")) {
        mVerdict = Outcome::kRefusedBusy;
    } else if (contains(text, " expired ")) {
        mVerdict = Outcome::kExpired;
    } else if (const size_t at = text.rfind(" return "); at != std::string::npos) {
        const long result = std::strtol(text.c_str() + at + 8, nullptr, 10);
        mVerdict = result == 0 ? Outcome::kUnchanged : Outcome::kFailed;
    }
}

/**
 * Between the closes of its intervals the monitor refuses frames without a message, so its last
 * verdict has to be remembered.
 */
void EngineLog::noteMonitor(const std::string& text) {
    if (startsWith(text, "monitor UNHEALTHY")) {
        mIsUnhealthy = true;
    } else if (startsWith(text, "monitor healthy") || startsWith(text, "monitor restore:1")) {
        mIsUnhealthy = false;
    }
}

void EngineLog::noteCondition(const std::string& text) {
    constexpr char kReason[] = ". Because ";
    const size_t at = text.rfind(kReason);
    if (at == std::string::npos) {
        return;
    }
    const std::string reason = text.substr(at + sizeof(kReason) - 1);
    const bool isRefused = contains(text, "]:0 ");
    if (startsWith(text, "mIsEnhance[EN_COND_RECT]")) {
        mState.refusedRect = isRefused ? reason : std::string();
    } else if (startsWith(text, "mIsEnhance[EN_COND_FPS]")) {
        mState.refusedRate = isRefused ? reason : std::string();
    }
}

void EngineLog::noteConfiguration(const std::string& text) {
    Limits limits{};
    const size_t at = text.find("timeout:{ ");
    if (at != std::string::npos &&
        std::sscanf(text.c_str() + at, "timeout:{ abort:%dms overload:%dms", &limits.abortMs,
                    &limits.overloadMs) == 2) {
        mState.limits = limits;
    }
}

void EngineLog::beginFrame() {
    const DeMutexLock lock(mMutex);
    mVerdict.reset();
}

bool EngineLog::isExpired() const {
    const DeMutexLock lock(mMutex);
    return mVerdict == Outcome::kExpired;
}

Outcome EngineLog::outcome(bool isChanged) const {
    const DeMutexLock lock(mMutex);
    if (!mVerdict) {
        if (isChanged) {
            return Outcome::kEnhanced;
        }
        return mIsUnhealthy ? Outcome::kRefusedUnhealthy : Outcome::kRefusedUnknown;
    }
    return *mVerdict == Outcome::kUnchanged && isChanged ? Outcome::kEnhanced : *mVerdict;
}

std::string EngineLog::whyNotNeeded() const {
    const DeMutexLock lock(mMutex);
    if (!mState.refusedRect.empty()) {
        return "the size is outside the configured range, " + mState.refusedRect;
    }
    if (!mState.refusedRate.empty()) {
        return "the frame rate is above the configured ceiling, " + mState.refusedRate;
    }
    // Size and rate change on the player's thread alone, so it can only be the switch.
    return "switched off by the service";
}

EngineLog::State EngineLog::state() const {
    const DeMutexLock lock(mMutex);
    return mState;
}

EngineLog& collectEngineLog(bool isVerbose) {
    auto* collector = new Collector{{}, std::this_thread::get_id(), isVerbose};
    gCollector = collector;
    __android_log_set_logger(collect);
    return collector->log;
}

}  // namespace player
