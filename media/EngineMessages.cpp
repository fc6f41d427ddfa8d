// SPDX-License-Identifier: Apache-2.0
#include "media/EngineMessages.h"

#include <cinttypes>
#include <cstdio>
#include <string>

#include "common/DeMutex.h"
#include "common/DisplayEngineCleanCommon.h"
#include "media/HeldFrames.h"
#include "media/LogTap.h"

namespace displayengine::media::messages {
namespace {

using std::string_view;

thread_local Result* tCall = nullptr;

/** A text to be remembered takes no memory while messages are read, unless it is very long. */
struct Text : std::string {
    Text() { reserve(256); }
    using std::string::operator=;
};

/** What is known of a condition. */
struct ConditionNote {
    string_view start; /**< Of the messages about it; "1" for met comes behind. */
    Reason reason;     /**< If it is not met. */
    string_view unknown;
    string_view unmet;
    bool isMet = false;
    Text text = {}; /**< Empty if nothing was said yet. */
};

/** What is remembered. */
struct Notes {
    ConditionNote conditions[kConditions] DE_GUARDED_BY(mutex) = {
        {"mIsEnhance[EN_COND_RECT]:", Reason::kSize, "no size has been reported",
         "the size is outside the service's range, "},
        {"mIsEnhance[EN_COND_FPS]:", Reason::kRate, "no frame rate has been reported",
         "the frame rate is above the service's ceiling, "}};
    std::optional<Limits> limits DE_GUARDED_BY(mutex);
    Wanted bringUp DE_GUARDED_BY(mutex){Reason::kNotStarted,
                                        "the engine did not come up before the first session"};
    Text monitor DE_GUARDED_BY(mutex);   /**< Its last verdict; empty for a healthy stream. */
    Text transport DE_GUARDED_BY(mutex); /**< Binder's last complaint. */
    Text trouble DE_GUARDED_BY(mutex);   /**< The engine's last complaint. */
    Text notReady DE_GUARDED_BY(mutex);  /**< Why the library did not start last. */
    Text status DE_GUARDED_BY(mutex);    /**< The adapter's words on the worker's frame. */
    Text failure DE_GUARDED_BY(mutex);   /**< The same of the last frame that failed. */
    DeMutex mutex;
};
/** Never destroyed, since messages come while the process exits. */
Notes& gNotes = *new Notes;

/** The messages with which the engine's call for a frame ends; of several, the first counts. */
constexpr struct {
    string_view function;
    string_view part;
    Outcome outcome;
    Text Notes::*text = nullptr; /**< Tells more than the message, unless it is empty. */
} kVerdicts[] = {
    {"getReady", "the worker", Outcome::kRefusedNotReady},
    {"getReady", "", Outcome::kRefusedNotReady, &Notes::notReady},
    {"isReady", "", Outcome::kRefusedNotReady, &Notes::notReady},
    {"enhance", "Invalid input:", Outcome::kRefusedInvalid},
    {"enhance", "Overload!", Outcome::kRefusedOverload},
    {"isUnhealthy", "monitor UNHEALTHY", Outcome::kRefusedUnhealthy},
    {"isUnhealthy", "monitor restore:0", Outcome::kRefusedUnhealthy},
    {"enhance", "Tasks is not empty!", Outcome::kRefusedBusy},
    {"enhance", " expired ", Outcome::kExpired},
    {"enhance", " return 0", Outcome::kProcessed},
    {"enhance", " return ", Outcome::kFailed, &Notes::failure},
};

bool contains(string_view text, string_view part) {
    return text.find(part) != string_view::npos;
}

/** The outcome first: it stays when there is no memory for the text. */
void judge(Outcome outcome, string_view text) {
    tCall->outcome = outcome;
    tCall->text.clear();
    tCall->text = outcome == Outcome::kProcessed ? "" : text;
}

void readCall(const Notes& it, string_view function, string_view text) DE_REQUIRES(it.mutex) {
    for (const auto& verdict : kVerdicts) {
        if (function == verdict.function && contains(text, verdict.part)) {
            const bool isOwn = verdict.text == nullptr || (it.*verdict.text).empty();
            return judge(verdict.outcome, isOwn ? text : it.*verdict.text);
        }
    }
}

void readCondition(Notes& it, string_view text) DE_REQUIRES(it.mutex) {
    constexpr string_view kReason = ". Because ";
    for (ConditionNote& condition : it.conditions) {
        const size_t length = condition.start.size();
        if (text.substr(0, length) == condition.start) {
            condition.isMet = text.substr(length, 1) == "1";
            condition.text = condition.unmet;
            condition.text += text.substr(text.rfind(kReason) + kReason.size());
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

void readEngine(Notes& it, string_view function, string_view text, bool isWarning)
    DE_REQUIRES(it.mutex) {
    if (function == "doEnhance") {
        if (isWarning) {
            // A frame may have failed without the adapter's words, as by an exception.
            it.failure = it.status.empty() ? text : it.status;
        }
        it.status.clear();
    } else if (function == "updateEnhance") {
        readCondition(it, text);
    } else if (function == "isUnhealthy") {
        const bool isHealthy = contains(text, "monitor healthy") || contains(text, "restore:1");
        it.monitor = isHealthy ? "" : text;
    } else if (function == "getConfig" && !isWarning) {
        readConfiguration(it, text);
    } else if (tCall == nullptr && isWarning) {
        it.trouble = text;
    }
    if (tCall != nullptr) {
        readCall(it, function, text);
    }
}

/** The processing library's troubles: to start, and with a frame. */
void readAdapter(Notes& it, string_view function, string_view text) DE_REQUIRES(it.mutex) {
    if (function == "openLibrary" || function == "loadLibrary" || function == "init") {
        it.notReady = text;
    } else if (tCall == nullptr && (function == "enhance" || function == "setParam")) {
        it.status = contains(text, "Retry init()") ? it.notReady : text;
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
    const bool isRefused = !it.monitor.empty() && g_delogdEnable && g_delogiEnable;
    judge(isRefused ? Outcome::kRefusedUnhealthy : Outcome::kUnknown,
          isRefused ? it.monitor : string_view("the engine said nothing"));
}

}  // namespace

void setCall(Result* call) {
    tCall = call;
}

void read(string_view tag, string_view message, bool isWarning) {
    // The library's read "function:line: text".
    const size_t colon = message.find(':');
    const size_t end = message.find(": ", colon + 1);
    const string_view function = message.substr(0, colon);
    const string_view text = end == string_view::npos ? message : message.substr(end + 2);
    const bool isEngines = tag == "DE N AISR";
    uint64_t id = 0;
    uint64_t idx = 0;
    // The worker's message, which tells that the processing library has returned from the frame.
    // Without memory for its name, the next one tells the same.
    if (isEngines && function == "doEnhance" &&
        std::sscanf(text.data(), "%*[^{]{ id=%" SCNx64 " idx=%" SCNu64, &id, &idx) == 2) {
        heldframes::done(id, idx);
    }
    const DeMutexLock lock(gNotes.mutex);
    if (isEngines) {
        readEngine(gNotes, function, text, isWarning);
    } else if (tag == logtap::kProbeTag && tCall != nullptr) {
        readProbe(gNotes);
    } else if (tag == "DE N VideoEngine" && isWarning) {
        readFacade(gNotes, text);
    } else if (tag == "DE N AISRAlgo" && isWarning) {
        readAdapter(gNotes, function, text);
    } else if (tag == "binder" && isWarning) {
        gNotes.transport = message;
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
    for (const ConditionNote& condition : gNotes.conditions) {
        if (!condition.isMet || condition.text.empty()) {
            wanted->reason = condition.reason;
            wanted->text = condition.text.empty() ? condition.unknown : condition.text;
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
