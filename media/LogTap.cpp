// SPDX-License-Identifier: Apache-2.0
#include "media/LogTap.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <iterator>

#include "common/DeMutex.h"
#include "common/DisplayEngineCleanCommon.h"

namespace displayengine::media::logtap {
namespace {

constexpr std::string_view kCommonTag = "DE N DECC";
constexpr std::string_view kLibraryTags[] = {kEngineTag, kAdapterTag, kFacadeTag, kCommonTag,
                                             "DE N DEM"};
constexpr char kProbeTag[] = "DE N Media";

// Messages come until the process has ended, so nothing here is ever destroyed.
std::atomic<__android_logger_function> gNext{__android_log_stderr_logger};
std::atomic<Reader> gReader{nullptr};

DeMutex gMutex;
int gUserCount DE_GUARDED_BY(gMutex) = 0;
// What the user of the switches wants while there are users of ours.
bool gIsDebugWanted DE_GUARDED_BY(gMutex) = false;
bool gIsInfoWanted DE_GUARDED_BY(gMutex) = false;
/** Debug and info messages cannot be told apart, so they are hidden when neither is wanted. */
std::atomic<bool> gHides{false};

thread_local bool tHasSeenProbe = false;

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool isLibraryTag(std::string_view tag) {
    return std::find(std::begin(kLibraryTags), std::end(kLibraryTags), tag) !=
           std::end(kLibraryTags);
}

/** A message of the library reads "function:line: text". */
Message split(std::string_view tag, std::string_view message, bool isWarning) {
    const size_t colon = message.find(':');
    const size_t end = colon == std::string_view::npos ? colon : message.find(": ", colon + 1);
    if (end == std::string_view::npos || tag == kBinderTag) {
        return {tag, {}, message, isWarning};
    }
    return {tag, message.substr(0, colon), message.substr(end + 2), isWarning};
}

/** A new manager sets the switches from properties, and says so just before. */
void noteReset(const Message& message) {
    if (message.function != "initLogSwitch") {
        return;
    }
    const DeMutexLock lock(gMutex);
    if (gUserCount > 0) {
        gIsDebugWanted = gIsInfoWanted = message.text.find("=1") != std::string_view::npos;
        gHides = !gIsDebugWanted;
    }
}

void receive(const __android_log_message* whole) {
    const std::string_view tag = whole->tag != nullptr ? whole->tag : "";
    const std::string_view text = whole->message != nullptr ? whole->message : "";
    if (tag == kProbeTag) {
        tHasSeenProbe = true;
        return;
    }
    const bool isWarning = whole->priority >= ANDROID_LOG_WARN;
    const bool isLibrarys = isLibraryTag(tag);
    // The verbose switch stays its user's own.
    const bool isHidden = gHides.load(std::memory_order_relaxed) && isLibrarys && !isWarning &&
                          !startsWith(text, "LOGV ");
    if (isLibrarys || tag == kBinderTag) {
        const Message message = split(tag, text, isWarning);
        try {
            tag == kCommonTag ? noteReset(message) : gReader.load()(message);
        } catch (...) {
            // No memory for a text.
        }
    }
    if (!isHidden) {
        gNext.load()(whole);
    }
}

/** Switches them on; one that is off before has been set so by its user. */
void raise(bool isFirst) DE_REQUIRES(gMutex) {
    gIsDebugWanted = (isFirst || gIsDebugWanted) && g_delogdEnable;
    gIsInfoWanted = (isFirst || gIsInfoWanted) && g_delogiEnable;
    gHides = !gIsDebugWanted && !gIsInfoWanted;
    g_delogdEnable = true;
    g_delogiEnable = true;
}

}  // namespace

void install(__android_logger_function next, Reader reader) {
    gNext = next != nullptr ? next : __android_log_stderr_logger;
    gReader = reader;
    __android_log_set_logger(receive);
}

bool isInPlace() {
    tHasSeenProbe = false;
    __android_log_print(ANDROID_LOG_INFO, kProbeTag,
                        "A video session's logger has been replaced: it cannot tell outcomes.");
    return tHasSeenProbe;
}

void acquire() {
    const DeMutexLock lock(gMutex);
    raise(gUserCount++ == 0);
}

void release() {
    const DeMutexLock lock(gMutex);
    if (--gUserCount == 0) {
        // One that is off by now has been set so meanwhile.
        g_delogdEnable = g_delogdEnable && gIsDebugWanted;
        g_delogiEnable = g_delogiEnable && gIsInfoWanted;
        gHides = false;
    }
}

void keepOn() {
    if (!isOn()) {
        const DeMutexLock lock(gMutex);
        if (gUserCount > 0) {
            raise(false);
        }
    }
}

bool isOn() {
    return g_delogdEnable.load(std::memory_order_relaxed) &&
           g_delogiEnable.load(std::memory_order_relaxed);
}

}  // namespace displayengine::media::logtap
