// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

/** Lines of text that any thread may add to, in order. */
class Lines {
public:
    void add(const std::string& line);
    std::vector<std::string> lines() const;
    /** Returns the lines so far and forgets them. */
    std::vector<std::string> take();
    /** Likewise, once there are so many; fails the test when they do not come. */
    std::vector<std::string> take(size_t count);
    /** How many lines contain `text`. */
    size_t count(const std::string& text) const;
    bool contains(const std::string& text) const { return count(text) != 0; }
    /** The last line that contains `text`, or an empty one. */
    std::string last(const std::string& text) const;
    /** Blocks until `times` lines contain `text`; fails the test when they do not come. */
    void waitFor(const std::string& text, size_t times = 1) const;

private:
    size_t countLocked(const std::string& text) const;

    mutable std::mutex mMutex;
    mutable std::condition_variable mAdded;
    std::vector<std::string> mLines;
};
