// SPDX-License-Identifier: Apache-2.0
#include "LibraryLog.h"

#include <android/log.h>

#include <atomic>
#include <cstring>

namespace control {
namespace {

// Never destroyed: the library logs until the process has ended.
std::atomic<bool> gIsVerbose{false};
std::atomic<bool> gHasFailed{false};

void receive(const __android_log_message* message) {
    // The tag of the facade. Failures within the video engine are answers: no enhancement.
    if (message->priority >= ANDROID_LOG_ERROR && message->tag != nullptr &&
        std::strcmp(message->tag, "DE N DEM") == 0) {
        gHasFailed = true;
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

bool hasLoggedFailure() {
    return gHasFailed;
}

}  // namespace control
