// SPDX-License-Identifier: Apache-2.0
#include "LibraryLog.h"

#include <android/log.h>

#include <atomic>

#include "common/DeMutex.h"
#include "common/DisplayEngineCleanCommon.h"

namespace control {
namespace {

/** Never destroyed: the library logs until the process has ended. */
std::atomic<bool> gIsVerbose{false};
std::atomic<bool> gHasFailed{false};
DeMutex& gMutex = *new DeMutex;
std::string& gPlatformWarning = *new std::string;

void receive(const __android_log_message* message) {
    const std::string tag = message->tag != nullptr ? message->tag : "";
    // The tag of the facade. Failures within the video engine are answers: no enhancement.
    if (message->priority >= ANDROID_LOG_ERROR && tag == "DE N DEM") {
        gHasFailed = true;
    }
    if (message->priority >= ANDROID_LOG_WARN && tag.rfind("DE N ", 0) != 0) {
        const DeMutexLock lock(gMutex);
        gPlatformWarning = message->message;
    }
    if (gIsVerbose) {
        __android_log_stderr_logger(message);
    }
}

}  // namespace

void takeLibraryLog(bool isVerbose) {
    gIsVerbose = isVerbose;
    __android_log_set_logger(receive);
}

void raiseLogSwitches() {
    if (gIsVerbose) {
        g_delogdEnable = true;
        g_delogiEnable = true;
        g_delogvEnable = true;
    }
}

bool hasLoggedFailure() {
    return gHasFailed;
}

std::string platformWarning() {
    const DeMutexLock lock(gMutex);
    return gPlatformWarning;
}

}  // namespace control
