// SPDX-License-Identifier: Apache-2.0
#include "media/EngineMessages.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "common/DeMutex.h"
#include "media/HeldFrames.h"

namespace displayengine::media::messages {
namespace {

using logtap::Message;
using std::string_view;

thread_local Call* tCall = nullptr;

bool startsWith(string_view text, string_view start) {
    return text.substr(0, start.size()) == start;
}

bool contains(string_view text, string_view part) {
    return text.find(part) != string_view::npos;
}

/** The number behind `key`, or 0. The text ends in a NUL, as all messages do. */
uint64_t numberBehind(string_view key, string_view text, int base) {
    const size_t at = text.find(key);
    return at == string_view::npos ? 0
                                   : std::strtoull(text.data() + at + key.size(), nullptr, base);
}

/** The verdict first: it stays when there is no memory for the text. */
void judge(Outcome verdict, string_view text) {
    tCall->verdict = verdict;
    tCall->text.clear();
    tCall->text = text;
}

/** A text to be remembered takes no memory while messages are read, unless it is very long. */
struct Text : std::string {
    Text() { reserve(256); }
    using std::string::operator=;
};

/** What is remembered. Never destroyed, since messages come while the process exits. */
struct Notes {
    struct {
        bool isKnown = false;
        bool isMet = false;
        Text text;
    } conditions[kConditions] DE_GUARDED_BY(mutex);
    std::optional<Limits> limits DE_GUARDED_BY(mutex);
    bool isUnhealthy DE_GUARDED_BY(mutex) = false;
    Text monitor DE_GUARDED_BY(mutex); /**< Its words when it found the stream so. */
    Wanted bringUp DE_GUARDED_BY(mutex);
    Text transport DE_GUARDED_BY(mutex); /**< Binder's last complaint. */
    Text trouble DE_GUARDED_BY(mutex);   /**< The engine's last complaint. */
    Text notReady DE_GUARDED_BY(mutex);  /**< Why the library did not start last. */
    Text status DE_GUARDED_BY(mutex);    /**< The adapter's words on the worker's frame. */
    Text failure DE_GUARDED_BY(mutex);   /**< The same of the last frame that failed. */
    DeMutex mutex;
};

/** The messages with which the call for one frame ends. */
void readCall(Notes& it, const Message& message) DE_REQUIRES(it.mutex) {
    constexpr struct {
        string_view start;
        Outcome outcome;
    } kRefusals[] = {{"Invalid input:", Outcome::kRefusedInvalid},
                     {"Overload!", Outcome::kRefusedOverload},
                     {"Tasks is not empty!", Outcome::kRefusedBusy}};
    const string_view text = message.text;
    if (message.function == "getReady" || startsWith(text, "Retry count:")) {
        // The adapter has told more about it than the engine, perhaps at an earlier attempt.
        const bool isAdapters = !contains(text, "the worker") && !it.notReady.empty();
        judge(Outcome::kRefusedNotReady, isAdapters ? string_view(it.notReady) : text);
    }
    if (message.function != "enhance") {
        return;
    }
    for (const auto& refusal : kRefusals) {
        if (startsWith(text, refusal.start)) {
            return judge(refusal.outcome, text);
        }
    }
    if (contains(text, " expired ")) {
        judge(Outcome::kExpired, text);
    } else if (const size_t at = text.rfind(" return "); at != string_view::npos) {
        const bool isSuccess = text.substr(at) == " return 0";
        judge(isSuccess ? Outcome::kProcessed : Outcome::kFailed,
              isSuccess ? "" : string_view(it.failure));
    }
}

void readWorker(Notes& it, string_view text) DE_REQUIRES(it.mutex) {
    if (!startsWith(text, "enhance(")) {
        // A frame may have failed without the adapter's words, as by an exception.
        it.failure = it.status.empty() ? text : string_view(it.status);
        it.status.clear();
    }
}

/** The processing library's troubles: to start, and with a frame. */
void readAdapter(Notes& it, const Message& message) DE_REQUIRES(it.mutex) {
    const string_view function = message.function;
    if (function == "openLibrary" || function == "loadLibrary" || function == "init") {
        it.notReady = message.text;
    } else if (tCall == nullptr && (function == "enhance" || function == "setParam")) {
        const bool isConsequence = startsWith(message.text, "Retry init()");
        it.status = isConsequence ? string_view(it.notReady) : message.text;
    }
}

/** Between the closes of its intervals the monitor refuses frames without a message. */
void readMonitor(Notes& it, string_view text) DE_REQUIRES(it.mutex) {
    it.isUnhealthy = !startsWith(text, "monitor healthy") && !startsWith(text, "monitor restore:1");
    if (it.isUnhealthy) {
        if (tCall != nullptr) {
            judge(Outcome::kRefusedUnhealthy, text);
        }
        it.monitor = text;
    }
}

void readCondition(Notes& it, string_view text) DE_REQUIRES(it.mutex) {
    constexpr string_view kReason = ". Because ";
    const size_t at = text.rfind(kReason);
    const bool isSize = startsWith(text, "mIsEnhance[EN_COND_RECT]");
    if (at != string_view::npos && (isSize || startsWith(text, "mIsEnhance[EN_COND_FPS]"))) {
        auto& condition = it.conditions[isSize ? kSizeCondition : kRateCondition];
        condition.isKnown = true;
        condition.isMet = contains(text, "]:1 ");
        condition.text.clear();
        condition.text = text.substr(at + kReason.size());
    }
}

void readConfiguration(Notes& it, string_view text) DE_REQUIRES(it.mutex) {
    Limits read{};
    if (std::sscanf(text.data(),
                    "enable:%*d rect:{ min:%dx%d max:%dx%d } maxFps:%d monitor:{ maxFps:%d "
                    "tolerance:%*d restore:%*d } timeout:{ abort:%dms overload:%dms",
                    &read.minWidth, &read.minHeight, &read.maxWidth, &read.maxHeight, &read.maxFps,
                    &read.monitorFps, &read.abortMs, &read.overloadMs) == 8) {
        it.limits = read;
    }
}

void fail(Wanted& bringUp, Reason reason, const char* what, const std::string& cause = {}) {
    bringUp.reason = reason;
    bringUp.text = what + (cause.empty() ? cause : ": " + cause);
}

/** The engine did not come up, which comes in two or three messages. */
void readFacade(Notes& it, string_view text) DE_REQUIRES(it.mutex) {
    if (startsWith(text, "Failed to get displayengineserver binder")) {
        fail(it.bringUp, Reason::kNoService, "no display engine service was found", it.transport);
    } else if (startsWith(text, "getSupported(")) {
        fail(it.bringUp, Reason::kNotSupported, "the service did not say what it supports");
    } else if (startsWith(text, "AisrEngine initialize() failed!")) {
        fail(it.bringUp, Reason::kNotStarted, "the engine did not come up", it.trouble);
    } else if (it.bringUp) {
        fail(it.bringUp, Reason::kNotSupported, "the service does not support video enhancement");
    }
}

void readEngine(Notes& it, const Message& message) DE_REQUIRES(it.mutex) {
    if (message.function == "doEnhance") {
        readWorker(it, message.text);
    } else if (message.function == "updateEnhance") {
        readCondition(it, message.text);
    } else if (message.function == "isUnhealthy") {
        readMonitor(it, message.text);
    } else if (message.function == "getConfig" && !message.isWarning) {
        readConfiguration(it, message.text);
    } else if (tCall != nullptr) {
        readCall(it, message);
    } else if (message.isWarning) {
        it.trouble = message.text;
    }
}

Notes& notes() {
    static Notes& theNotes = *new Notes;
    return theNotes;
}

}  // namespace

void prepare() {
    HeldFrames::get();
    notes();
}

void setCall(Call* call) {
    tCall = call;
}

void read(const Message& message) {
    const bool isEngines = message.tag == logtap::kEngineTag;
    if (isEngines && message.function == "doEnhance") {
        // The worker's, which tells that the processing library has returned from the frame.
        // Without memory for its name, the next one tells the same.
        const uint64_t id = numberBehind("{ id=", message.text, 16);
        if (id != 0) {
            HeldFrames::get().done(id, numberBehind(" idx=", message.text, 10));
        }
    }
    Notes& it = notes();
    const DeMutexLock lock(it.mutex);
    if (isEngines) {
        readEngine(it, message);
    } else if (message.isWarning && message.tag == logtap::kFacadeTag) {
        readFacade(it, message.text);
    } else if (message.isWarning && message.tag == logtap::kAdapterTag) {
        readAdapter(it, message);
    } else if (message.isWarning && message.tag == logtap::kBinderTag) {
        it.transport = message.text;
    }
}

std::optional<std::string> unhealthy() {
    const DeMutexLock lock(notes().mutex);
    return notes().isUnhealthy ? std::optional(notes().monitor) : std::nullopt;
}

void forgetConditions() {
    const DeMutexLock lock(notes().mutex);
    for (auto& condition : notes().conditions) {
        condition.isKnown = false;
    }
}

bool isKnown(Condition condition) {
    const DeMutexLock lock(notes().mutex);
    return notes().conditions[condition].isKnown;
}

std::optional<Limits> limits() {
    const DeMutexLock lock(notes().mutex);
    return notes().limits;
}

void explainConditions(Wanted* wanted) {
    constexpr struct {
        Reason reason;
        const char* unknown;
        const char* unmet;
    } kTexts[kConditions] = {
        {Reason::kSize, "no size has been reported", "the size is outside the service's range, "},
        {Reason::kRate, "no frame rate has been reported",
         "the frame rate is above the service's ceiling, "},
    };
    const DeMutexLock lock(notes().mutex);
    for (size_t i = 0; i < kConditions; ++i) {
        const auto& condition = notes().conditions[i];
        if (!condition.isKnown || !condition.isMet) {
            wanted->reason = kTexts[i].reason;
            wanted->text = condition.isKnown ? kTexts[i].unmet + condition.text : kTexts[i].unknown;
            return;
        }
    }
    wanted->reason = Reason::kSwitchedOff;
    wanted->text = "enhancement has just been switched";
}

void explainBringUp(Wanted* wanted) {
    const DeMutexLock lock(notes().mutex);
    const bool isKnown = !notes().bringUp;
    wanted->reason = isKnown ? notes().bringUp.reason : Reason::kNotStarted;
    wanted->text =
        isKnown ? notes().bringUp.text : "the engine did not come up before the first session";
}

}  // namespace displayengine::media::messages
