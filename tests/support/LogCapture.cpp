// SPDX-License-Identifier: Apache-2.0
#include "support/LogCapture.h"

#include <android/log.h>

#include <regex>

namespace {

std::mutex gCurrentMutex;
LogCapture* gCurrent = nullptr;

void receive(const struct __android_log_message* message) {
    static const auto& lineNumber = *new std::regex("^((?:LOGV )?[^ :]*\\(?\\)?):[0-9]+: ");
    const std::string line = std::to_string(message->priority) + " " + message->tag + " " +
                             std::regex_replace(message->message, lineNumber, "$1:#: ");
    const std::lock_guard<std::mutex> lock(gCurrentMutex);
    if (gCurrent != nullptr) {
        gCurrent->add(line);
    }
}

}  // namespace

LogCapture::LogCapture() {
    const std::lock_guard<std::mutex> lock(gCurrentMutex);
    gCurrent = this;
    __android_log_set_logger(receive);
}

LogCapture::~LogCapture() {
    const std::lock_guard<std::mutex> lock(gCurrentMutex);
    gCurrent = nullptr;
    __android_log_set_logger(nullptr);
}
