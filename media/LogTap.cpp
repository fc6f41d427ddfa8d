// SPDX-License-Identifier: Apache-2.0
#include "media/LogTap.h"

#include <algorithm>
#include <atomic>
#include <iterator>

#include "common/DeMutex.h"
#include "common/DisplayEngineCleanCommon.h"

namespace displayengine::media::logtap {
namespace {

constexpr std::string_view kLibraryTags[] = {"DE N AISR", "DE N AISRAlgo", "DE N VideoEngine",
                                             "DE N DECC", "DE N DEM"};

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

void receive(const __android_log_message* whole) {
    const std::string_view tag = whole->tag != nullptr ? whole->tag : "";
    const std::string_view message = whole->message != nullptr ? whole->message : "";
    const bool isWarning = whole->priority >= ANDROID_LOG_WARN;
    const auto* const end = std::end(kLibraryTags);
    // The verbose switch stays its user's own.
    const bool isRaised = !isWarning && message.substr(0, 5) != "LOGV " &&
                          std::find(std::begin(kLibraryTags), end, tag) != end;
    const bool isHidden = tag == kProbeTag || (isRaised && gHides.load(std::memory_order_relaxed));
    try {
        gReader.load()(tag, message, isWarning);
    } catch (...) {
        // No memory for a text.
    }
    if (tag == "DE N DECC" && message.substr(0, 14) == "initLogSwitch:") {
        // A new manager sets the switches from properties, and says so just before.
        const DeMutexLock lock(gMutex);
        if (gUserCount > 0) {
            gIsDebugWanted = gIsInfoWanted = message.find("=1") != std::string_view::npos;
            gHides = !gIsDebugWanted;
        }
    }
    if (!isHidden) {
        gNext.load()(whole);
    }
}

/** Switches them on; one that is off before has been set so by its user. */
void raise() DE_REQUIRES(gMutex) {
    gIsDebugWanted = g_delogdEnable.exchange(true) && gIsDebugWanted;
    gIsInfoWanted = g_delogiEnable.exchange(true) && gIsInfoWanted;
    gHides = !gIsDebugWanted && !gIsInfoWanted;
}

}  // namespace

void install(__android_logger_function next, Reader reader) {
    gNext = next != nullptr ? next : __android_log_stderr_logger;
    gReader = reader;
    __android_log_set_logger(receive);
}

void acquire() {
    const DeMutexLock lock(gMutex);
    if (gUserCount++ == 0) {
        gIsDebugWanted = gIsInfoWanted = true;
    }
    raise();
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
    const DeMutexLock lock(gMutex);
    if (gUserCount > 0) {
        raise();
    }
}

}  // namespace displayengine::media::logtap
