// SPDX-License-Identifier: Apache-2.0
#include "support/Lines.h"

#include <algorithm>
#include <utility>

#include "support/ThreadState.h"

void Lines::add(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mLines.push_back(line);
    mAdded.notify_all();
}

std::vector<std::string> Lines::lines() const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return mLines;
}

std::vector<std::string> Lines::take() {
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mLines, {});
}

std::vector<std::string> Lines::take(size_t count) {
    waitFor("", count);
    return take();
}

size_t Lines::count(const std::string& text) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return countLocked(text);
}

std::string Lines::last(const std::string& text) const {
    const std::vector<std::string> now = lines();
    const auto found = std::find_if(now.rbegin(), now.rend(), [&text](const std::string& line) {
        return line.find(text) != std::string::npos;
    });
    return found == now.rend() ? std::string() : *found;
}

void Lines::waitFor(const std::string& text, size_t times) const {
    std::unique_lock<std::mutex> lock(mMutex);
    waitUntil(mAdded, lock, "line " + std::to_string(times) + " with \"" + text + "\"",
              [&] { return countLocked(text) >= times; });
}

size_t Lines::countLocked(const std::string& text) const {
    return static_cast<size_t>(std::count_if(
        mLines.begin(), mLines.end(),
        [&text](const std::string& line) { return line.find(text) != std::string::npos; }));
}
