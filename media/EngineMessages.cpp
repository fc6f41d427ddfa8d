// SPDX-License-Identifier: Apache-2.0
#include "media/EngineMessages.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/DeMutex.h"
#include "media/HeldFrames.h"

namespace displayengine::media::messages {
namespace {

using logtap::Message;
using std::string_view;

thread_local Result* tCall = nullptr;

/** A text to be remembered takes no memory while messages are read, unless it is very long. */
struct Text : std::string {
    Text() { reserve(256); }
    using std::string::operator=;
};

/** What is remembered. */
struct Notes {
    struct {
        bool isMet = false;
        Text text; /**< Empty if nothing was said yet. */
    } conditions[kConditions] DE_GUARDED_BY(mutex);
    std::optional<Limits> limits DE_GUARDED_BY(mutex);
    Wanted bringUp DE_GUARDED_BY(mutex){Reason::kNotStarted,
                                        "the engine did not come up before the first session"};
    Text monitor DE_GUARDED_BY(mutex);   /**< Its last verdict; empty for a healthy stream. */
    Text transport DE_GUARDED_BY(mutex); /**< Binder's last complaint. */
    Text trouble DE_GUARDED_BY(mutex);   /**< The engine's last complaint. */
    Text notReady DE_GUARDED_BY(mutex);  /**< Why the library did not start last. */
    Text status DE_GUARDED_BY(mutex);    /**< The adapter's words on the worker's frame. */
    Text failure DE_GUARDED_BY(mutex);   /**< The same of the last frame that failed. */
    Text success DE_GUARDED_BY(mutex);   /**< Stays empty. */
    DeMutex mutex;
};
/** Never destroyed, since messages come while the process exits. */
Notes& gNotes = *new Notes;

/** The messages with which the engine's call for a frame ends; of several, the first counts. */
constexpr struct {
    string_view function;
    string_view part;
    Outcome outcome;
    Text Notes::*text = nullptr; /**< What is told of it: null for the message itself. */
} kVerdicts[] = {
    {"getReady", "", Outcome::kRefusedNotReady, &Notes::notReady},
    {"isReady", "", Outcome::kRefusedNotReady, &Notes::notReady},
    {"enhance", "Invalid input:", Outcome::kRefusedInvalid},
    {"enhance", "Overload!", Outcome::kRefusedOverload},
    {"isUnhealthy", "monitor UNHEALTHY", Outcome::kRefusedUnhealthy},
    {"isUnhealthy", "monitor restore:0", Outcome::kRefusedUnhealthy},
    {"enhance", "Tasks is not empty!", Outcome::kRefusedBusy},
    {"enhance", " expired ", Outcome::kExpired},
    {"enhance", " return 0", Outcome::kProcessed, &Notes::success},
    {"enhance", " return ", Outcome::kFailed, &Notes::failure},
};

/** How the messages about a condition begin, and what is told of it. */
constexpr struct {
    string_view start;
    Reason reason;
    string_view unknown;
    string_view unmet;
} kConditionWords[kConditions] = {
    {"mIsEnhance[EN_COND_RECT]:", Reason::kSize, "no size has been reported",
     "the size is outside the service's range, "},
    {"mIsEnhance[EN_COND_FPS]:", Reason::kRate, "no frame rate has been reported",
     "the frame rate is above the service's ceiling, "},
};

bool contains(string_view text, string_view part) {
    return text.find(part) != string_view::npos;
}

/** The number behind `key`, or 0. The text ends in a NUL, as all messages do. */
uint64_t numberBehind(string_view key, string_view text, int base) {
    const size_t at = text.find(key);
    return at == string_view::npos ? 0
                                   : std::strtoull(text.data() + at + key.size(), nullptr, base);
}

/** The outcome first: it stays when there is no memory for the text. */
void judge(Outcome outcome, string_view text) {
    tCall->outcome = outcome;
    tCall->text.clear();
    tCall->text = text;
}

void readCall(const Notes& it, const Message& message) DE_REQUIRES(it.mutex) {
    for (const auto& verdict : kVerdicts) {
        if (message.function == verdict.function && contains(message.text, verdict.part)) {
            const Text Notes::*const text = verdict.text;
            return judge(verdict.outcome, text == nullptr ? message.text : string_view(it.*text));
        }
    }
}

void readCondition(Notes& it, string_view text) DE_REQUIRES(it.mutex) {
    constexpr string_view kReason = ". Because ";
    for (size_t i = 0; i < kConditions; ++i) {
        const auto& [start, reason, unknown, unmet] = kConditionWords[i];
        if (text.substr(0, start.size()) == start) {
            it.conditions[i].isMet = text.substr(start.size(), 1) == "1";
            it.conditions[i].text = unmet;
            it.conditions[i].text += text.substr(text.rfind(kReason) + kReason.size());
        }
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

void readEngine(Notes& it, const Message& message) DE_REQUIRES(it.mutex) {
    const auto& [tag, function, text, isWarning] = message;
    if (function == "doEnhance") {
        if (isWarning) {
            // A frame may have failed without the adapter's words, as by an exception.
            it.failure = it.status.empty() ? text : string_view(it.status);
        }
        it.status.clear();
    } else if (function == "updateEnhance") {
        readCondition(it, text);
    } else if (function == "isUnhealthy") {
        const bool isHealthy = contains(text, "monitor healthy") || contains(text, "restore:1");
        it.monitor = isHealthy ? "" : text;
    } else if (function == "getConfig" && !isWarning) {
        readConfiguration(it, text);
    } else if (function == "getReady" || function == "isReady") {
        // The adapter has told more about the library, perhaps at an earlier attempt.
        if (it.notReady.empty() || contains(text, "the worker")) {
            it.notReady = text;
        }
    } else if (isWarning) {
        it.trouble = text;
    }
    if (tCall != nullptr) {
        readCall(it, message);
    }
}

/** The processing library's troubles: to start, and with a frame. */
void readAdapter(Notes& it, string_view function, string_view text) DE_REQUIRES(it.mutex) {
    if (function == "openLibrary" || function == "loadLibrary" || function == "init") {
        it.notReady = text;
    } else if (tCall == nullptr && (function == "enhance" || function == "setParam")) {
        const bool isConsequence = contains(text, "Retry init()");
        it.status = isConsequence ? string_view(it.notReady) : text;
    }
}

void explain(Notes& it, Reason reason, const std::string& what, const std::string& cause = {})
    DE_REQUIRES(it.mutex) {
    it.bringUp.reason = reason;
    it.bringUp.text = what + (cause.empty() ? cause : ": " + cause);
}

/** The engine did not come up, which comes in two or three messages. */
void readFacade(Notes& it, string_view text) DE_REQUIRES(it.mutex) {
    if (contains(text, "Failed to get displayengineserver binder")) {
        explain(it, Reason::kNoService, "no display engine service was found", it.transport);
    } else if (contains(text, "getSupported(")) {
        explain(it, Reason::kNotSupported, "the service did not say what it supports");
    } else if (contains(text, "AisrEngine initialize() failed!")) {
        explain(it, Reason::kNotStarted, "the engine did not come up", it.trouble);
    } else if (it.bringUp.reason == Reason::kNotStarted) {
        explain(it, Reason::kNotSupported, "the service does not support video enhancement");
    }
}

/** A call for a frame has ended without a verdict. The monitor gives one only now and then. */
void readProbe(const Notes& it) DE_REQUIRES(it.mutex) {
    if (tCall != nullptr && !it.monitor.empty() && logtap::isOn()) {
        judge(Outcome::kRefusedUnhealthy, it.monitor);
    } else if (tCall != nullptr) {
        judge(Outcome::kUnknown, "the engine said nothing");
    }
}

}  // namespace

void setCall(Result* call) {
    tCall = call;
}

void read(const Message& message) {
    const auto& [tag, function, text, isWarning] = message;
    if (tag == logtap::kEngineTag && function == "doEnhance") {
        // The worker's, which tells that the processing library has returned from the frame.
        // Without memory for its name, the next one tells the same.
        const uint64_t id = numberBehind("{ id=", text, 16);
        if (id != 0) {
            heldframes::done(id, numberBehind(" idx=", text, 10));
        }
    }
    const DeMutexLock lock(gNotes.mutex);
    if (tag == logtap::kEngineTag) {
        readEngine(gNotes, message);
    } else if (tag == logtap::kProbeTag) {
        readProbe(gNotes);
    } else if (tag == logtap::kFacadeTag && isWarning) {
        readFacade(gNotes, text);
    } else if (tag == logtap::kAdapterTag && isWarning) {
        readAdapter(gNotes, function, text);
    } else if (tag == logtap::kBinderTag && isWarning) {
        gNotes.transport = text;
    }
}

void forgetConditions() {
    const DeMutexLock lock(gNotes.mutex);
    for (auto& condition : gNotes.conditions) {
        condition.text.clear();
    }
}

bool isKnown(Condition condition) {
    const DeMutexLock lock(gNotes.mutex);
    return !gNotes.conditions[condition].text.empty();
}

std::optional<Limits> limits() {
    const DeMutexLock lock(gNotes.mutex);
    return gNotes.limits;
}

void explainConditions(Wanted* wanted) {
    const DeMutexLock lock(gNotes.mutex);
    for (size_t i = 0; i < kConditions; ++i) {
        const auto& [isMet, text] = gNotes.conditions[i];
        if (!isMet || text.empty()) {
            wanted->reason = kConditionWords[i].reason;
            wanted->text = text.empty() ? kConditionWords[i].unknown : string_view(text);
            return;
        }
    }
    wanted->reason = Reason::kSwitchedOff;
    wanted->text = "enhancement has just been switched";
}

void explainBringUp(Wanted* wanted) {
    const DeMutexLock lock(gNotes.mutex);
    *wanted = gNotes.bringUp;
}

}  // namespace displayengine::media::messages
