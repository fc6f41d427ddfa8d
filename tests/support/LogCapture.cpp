// SPDX-License-Identifier: Apache-2.0
#include "support/LogCapture.h"

#include <algorithm>
#include <regex>
#include <utility>

#include "support/ThreadState.h"

namespace {

std::mutex gCurrentMutex;
LogCapture* gCurrent = nullptr;

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

void LogCapture::receive(const struct __android_log_message* message) {
    static const auto& lineNumber = *new std::regex("^((?:LOGV )?[^ :]*\\(?\\)?):[0-9]+: ");
    const std::string line = std::to_string(message->priority) + " " + message->tag + " " +
                             std::regex_replace(message->message, lineNumber, "$1:#: ");
    const std::lock_guard<std::mutex> currentLock(gCurrentMutex);
    if (gCurrent == nullptr) {
        return;
    }
    const std::lock_guard<std::mutex> lock(gCurrent->mMutex);
    gCurrent->mLines.push_back(line);
    gCurrent->mArrived.notify_all();
}

std::vector<std::string> LogCapture::lines() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mLines;
}

std::vector<std::string> LogCapture::take() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mLines, {});
}

size_t LogCapture::count(const std::string& text) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return countLocked(text);
}

std::string LogCapture::last(const std::string& text) const {
    const std::vector<std::string> now = lines();
    const auto found = std::find_if(now.rbegin(), now.rend(), [&text](const std::string& line) {
        return line.find(text) != std::string::npos;
    });
    return found == now.rend() ? std::string() : *found;
}

void LogCapture::waitFor(const std::string& text, size_t times) const {
    std::unique_lock<std::mutex> lock(mMutex);
    waitUntil(mArrived, lock, "the log line \"" + text + "\"",
              [&] { return countLocked(text) >= times; });
}

size_t LogCapture::countLocked(const std::string& text) const {
    return static_cast<size_t>(std::count_if(
        mLines.begin(), mLines.end(),
        [&text](const std::string& line) { return line.find(text) != std::string::npos; }));
}
