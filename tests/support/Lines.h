// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <condition_variable>
#include <iterator>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/ThreadState.h"

/** Lines of text that any thread may add to, in order. */
class Lines {
public:
    void add(const std::string& line) {
        const std::lock_guard<std::mutex> lock(mMutex);
        mLines.push_back(line);
        mAdded.notify_all();
    }
    std::vector<std::string> lines() const {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mLines;
    }
    /** Returns the lines, once there are so many, and forgets them. */
    std::vector<std::string> take(size_t atLeast = 0) {
        waitFor("", atLeast);
        const std::lock_guard<std::mutex> lock(mMutex);
        return std::exchange(mLines, {});
    }
    /** How many lines contain `text`. */
    size_t count(const std::string& text) const { return with(text, lines()).size(); }
    bool contains(const std::string& text) const { return count(text) != 0; }
    /** The last line that contains `text`, or an empty one. */
    std::string last(const std::string& text) const {
        const std::vector<std::string> found = with(text, lines());
        return found.empty() ? "" : found.back();
    }
    /** Blocks until `times` lines contain `text`; fails the test when they do not come. */
    void waitFor(const std::string& text, size_t times = 1) const {
        std::unique_lock<std::mutex> lock(mMutex);
        waitUntil(mAdded, lock, "line " + std::to_string(times) + " with \"" + text + "\"",
                  [&] { return with(text, mLines).size() >= times; });
    }

private:
    /** Those of `lines` that contain `text`. */
    static std::vector<std::string> with(const std::string& text,
                                         const std::vector<std::string>& lines) {
        std::vector<std::string> found;
        std::copy_if(lines.begin(), lines.end(), std::back_inserter(found),
                     [&text](const std::string& line) { return line.find(text) != line.npos; });
        return found;
    }

    mutable std::mutex mMutex;
    mutable std::condition_variable mAdded;
    std::vector<std::string> mLines;
};
