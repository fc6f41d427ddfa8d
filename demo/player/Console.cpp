// SPDX-License-Identifier: Apache-2.0
#include "Console.h"

#include <unistd.h>

#include <iostream>

namespace player {
namespace {

constexpr std::chrono::milliseconds kTerminalInterval(200);
constexpr std::chrono::milliseconds kPlainInterval(1000);
/** Back to the first column, and clear the line. */
constexpr char kRewind[] = "\r\x1b[K";

}  // namespace

Console::Console(bool isQuiet, bool isStandardError)
    : mOut(isStandardError ? std::cerr : std::cout),
      mIsQuiet(isQuiet),
      mIsTerminal(isatty(isStandardError ? STDERR_FILENO : STDOUT_FILENO) == 1) {}

bool Console::wantsProgress(std::chrono::steady_clock::time_point now) const {
    return !mIsQuiet && now >= mNext;
}

void Console::progress(const std::string& text, std::chrono::steady_clock::time_point now) {
    mNext = now + (mIsTerminal ? kTerminalInterval : kPlainInterval);
    if (mIsTerminal) {
        mOut << kRewind << text << std::flush;
        mIsLineOpen = true;
    } else {
        mOut << text << std::endl;
    }
}

void Console::line(const std::string& text) {
    mOut << (mIsLineOpen ? kRewind : "") << text << std::endl;
    mIsLineOpen = false;
}

void Console::finish() {
    if (mIsLineOpen) {
        mOut << std::endl;
        mIsLineOpen = false;
    }
}

}  // namespace player
