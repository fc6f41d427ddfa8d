// SPDX-License-Identifier: Apache-2.0
#include "media/EngineNotes.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "media/HeldFrames.h"

namespace displayengine::media {
namespace {

thread_local Call* tCall = nullptr;

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != text.npos;
}

/** The number behind `key`; none without it. The text ends in a NUL, as all messages do. */
std::optional<uint64_t> numberBehind(std::string_view key, std::string_view text, int base) {
    const size_t at = text.find(key);
    if (at == text.npos) {
        return std::nullopt;
    }
    return std::strtoull(text.data() + at + key.size(), nullptr, base);
}

/** The worker names a frame when the processing library has returned from it, in this text. */
void tellDone(std::string_view text) {
    const auto id = numberBehind("{ id=", text, 16);
    const auto idx = numberBehind(" idx=", text, 10);
    if (id && idx) {
        HeldFrames::get().done(*id, *idx);
    }
}

/** The verdict first: it stays when there is no memory for the text. */
void judge(Outcome verdict, std::string_view text) {
    tCall->verdict = verdict;
    tCall->text.clear();
    tCall->text = text;
}

}  // namespace

EngineNotes& EngineNotes::get() {
    static EngineNotes& theNotes = *new EngineNotes;
    return theNotes;
}

void EngineNotes::setCall(Call* call) {
    tCall = call;
}

void EngineNotes::note(const logtap::Message& message) {
    if (message.tag == logtap::kEngineTag) {
        if (message.function == "doEnhance") {
            tellDone(message.text);
        }
        const DeMutexLock lock(mMutex);
        noteEngine(message);
    } else if (message.isWarning) {
        const DeMutexLock lock(mMutex);
        if (message.tag == logtap::kFacadeTag) {
            noteFacade(message.text);
        } else if (message.tag == logtap::kAdapterTag) {
            noteAdapter(message);
        } else if (message.tag == logtap::kBinderTag) {
            mTransport = message.text;
        }
    }
}

void EngineNotes::noteEngine(const logtap::Message& message) {
    if (message.function == "doEnhance") {
        noteWorker(message.text);
    } else if (message.function == "updateEnhance") {
        noteCondition(message.text);
    } else if (message.function == "isUnhealthy") {
        noteMonitor(message.text);
    } else if (message.function == "getConfig" && !message.isWarning) {
        noteConfiguration(message.text);
    } else if (tCall != nullptr) {
        noteCall(message);
    } else if (message.isWarning) {
        mTrouble = message.text;
    }
}

/** The messages with which the call for one frame ends. */
void EngineNotes::noteCall(const logtap::Message& message) {
    const std::string_view text = message.text;
    if (message.function == "getReady" || startsWith(text, "Retry count:")) {
        // The adapter has told more about it than the engine, perhaps at an earlier attempt.
        const bool isAdapters = !contains(text, "the worker") && !mNotReady.empty();
        judge(Outcome::kRefusedNotReady, isAdapters ? std::string_view(mNotReady) : text);
    } else if (message.function != "enhance") {
        return;
    } else if (startsWith(text, "Invalid input:")) {
        judge(Outcome::kRefusedInvalid, text);
    } else if (startsWith(text, "Overload!")) {
        judge(Outcome::kRefusedOverload, text);
    } else if (startsWith(text, "Tasks is not empty!")) {
        judge(Outcome::kRefusedBusy, text);
    } else if (contains(text, " expired ")) {
        judge(Outcome::kExpired, text);
    } else if (const size_t at = text.rfind(" return "); at != text.npos) {
        const bool isSuccess = text.substr(at) == " return 0";
        judge(isSuccess ? Outcome::kProcessed : Outcome::kFailed, isSuccess ? "" : mFailure);
    }
}

void EngineNotes::noteWorker(std::string_view text) {
    if (startsWith(text, "enhance(")) {
        mStatus.clear();
        return;
    }
    mFailure = std::exchange(mStatus, std::string());
    if (mFailure.empty()) {
        mFailure = text;  // The frame has failed without a word, as by an exception.
    }
}

/** The processing library's troubles: those that keep it from starting, and those with a frame. */
void EngineNotes::noteAdapter(const logtap::Message& message) {
    const std::string_view function = message.function;
    if (function == "openLibrary" || function == "loadLibrary" || function == "init") {
        mNotReady = message.text;
    } else if (tCall == nullptr && (function == "enhance" || function == "setParam")) {
        // Behind the cause may come a message of its consequence.
        mStatus = startsWith(message.text, "Retry init()") && !mNotReady.empty()
                      ? std::string_view(mNotReady)
                      : message.text;
    }
}

/**
 * Between the closes of its intervals the monitor refuses frames without a message, so its last
 * verdict has to be remembered.
 */
void EngineNotes::noteMonitor(std::string_view text) {
    if (startsWith(text, "monitor healthy") || startsWith(text, "monitor restore:1")) {
        mIsUnhealthy = false;
        return;
    }
    mIsUnhealthy = true;
    if (tCall != nullptr) {
        judge(Outcome::kRefusedUnhealthy, text);
    }
    mMonitor = text;
}

void EngineNotes::noteCondition(std::string_view text) {
    constexpr std::string_view kReason = ". Because ";
    const size_t at = text.rfind(kReason);
    const bool isSize = startsWith(text, "mIsEnhance[EN_COND_RECT]");
    if (at == text.npos || (!isSize && !startsWith(text, "mIsEnhance[EN_COND_FPS]"))) {
        return;
    }
    ConditionNote& condition = mConditions[isSize ? kSizeCondition : kRateCondition];
    condition.isKnown = true;
    condition.isMet = contains(text, "]:1 ");
    condition.text.clear();
    condition.text = text.substr(at + kReason.size());
}

void EngineNotes::noteConfiguration(std::string_view text) {
    Limits limits{};
    if (std::sscanf(text.data(),
                    "enable:%*d rect:{ min:%dx%d max:%dx%d } maxFps:%d monitor:{ maxFps:%d "
                    "tolerance:%*d restore:%*d } timeout:{ abort:%dms overload:%dms",
                    &limits.minWidth, &limits.minHeight, &limits.maxWidth, &limits.maxHeight,
                    &limits.maxFps, &limits.monitorFps, &limits.abortMs, &limits.overloadMs) == 8) {
        mLimits = limits;
    }
}

void EngineNotes::noteFacade(std::string_view text) {
    if (startsWith(text, "Failed to get displayengineserver binder")) {
        mBringUp = Reason::kNoService;
        mBringUpText = "no display engine service was found";
        mBringUpText += mTransport.empty() ? "" : ": " + mTransport;
    } else if (startsWith(text, "getSupported(")) {
        mBringUp = Reason::kNotSupported;
        mBringUpText = "the service did not say whether it supports video enhancement";
    } else if (startsWith(text, "AisrProcessor is NOT supported!") && mBringUp == Reason::kNone) {
        mBringUp = Reason::kNotSupported;
        mBringUpText = "the service does not support video enhancement";
    } else if (startsWith(text, "AisrEngine initialize() failed!")) {
        mBringUp = Reason::kNotStarted;
        mBringUpText = "the engine did not come up: ";
        mBringUpText += mTrouble;
    }
}

std::optional<std::string> EngineNotes::unhealthy() const {
    const DeMutexLock lock(mMutex);
    return mIsUnhealthy ? std::optional(mMonitor) : std::nullopt;
}

void EngineNotes::forgetConditions() {
    const DeMutexLock lock(mMutex);
    for (ConditionNote& condition : mConditions) {
        condition.isKnown = false;
    }
}

bool EngineNotes::isKnown(Condition condition) const {
    const DeMutexLock lock(mMutex);
    return mConditions[condition].isKnown;
}

void EngineNotes::explainConditions(Wanted& wanted) const {
    constexpr struct {
        Reason reason;
        const char* unknown;
        const char* unmet;
    } kTexts[kConditions] = {
        {Reason::kSize, "no size has been reported", "the size is outside the service's range, "},
        {Reason::kRate, "no frame rate has been reported",
         "the frame rate is above the service's ceiling, "},
    };
    const DeMutexLock lock(mMutex);
    for (size_t i = 0; i < kConditions; ++i) {
        const ConditionNote& condition = mConditions[i];
        if (!condition.isKnown || !condition.isMet) {
            wanted.reason = kTexts[i].reason;
            wanted.text = condition.isKnown ? kTexts[i].unmet + condition.text : kTexts[i].unknown;
            return;
        }
    }
    wanted.reason = Reason::kSwitchedOff;
    wanted.text = "enhancement has just been switched";
}

void EngineNotes::explainBringUp(Wanted& wanted) const {
    const DeMutexLock lock(mMutex);
    const bool isKnown = mBringUp != Reason::kNone;
    wanted.reason = isKnown ? mBringUp : Reason::kNotStarted;
    wanted.text = isKnown ? mBringUpText : "the engine did not come up before the first session";
}

std::optional<Limits> EngineNotes::limits() const {
    const DeMutexLock lock(mMutex);
    return mLimits;
}

}  // namespace displayengine::media
