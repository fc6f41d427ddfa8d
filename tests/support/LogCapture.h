// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <android/log.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

/**
 * Collects the process's log messages while it lives; one at a time. A line reads "priority tag
 * text" with the source line number replaced by "#": "5 DE N AISRAlgo enhance:#: Retry init()
 * failed!".
 */
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const;
    /** Returns the lines so far and forgets them. */
    std::vector<std::string> take();
    /** How many lines contain `text`. */
    size_t count(const std::string& text) const;
    bool contains(const std::string& text) const { return count(text) != 0; }
    /** The last line that contains `text`, or an empty one. */
    std::string last(const std::string& text) const;
    /** Blocks until `times` lines contain `text`; fails the test when they do not come. */
    void waitFor(const std::string& text, size_t times = 1) const;

private:
    static void receive(const struct __android_log_message* message);
    size_t countLocked(const std::string& text) const;

    mutable std::mutex mMutex;
    mutable std::condition_variable mArrived;
    std::vector<std::string> mLines;
};
