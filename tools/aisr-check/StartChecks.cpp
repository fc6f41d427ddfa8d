// SPDX-License-Identifier: Apache-2.0
// Initialising, de-initialising and the first frames.
#include <algorithm>
#include <thread>

#include "Library.h"

namespace checker {
namespace {

constexpr int kCycles = 50;
/** The engine initialises while the client's call of a frame waits. */
constexpr double kSlowInitMs = 100;

void takeLogLevel(Library& library, int32_t level) {
    const int32_t status = library.setLogLevel(level);
    if (status != AISR_SUCCESS) {
        warn("AisrSetParam(AISR_TAG_SET_LOG_LEVEL) with " + std::to_string(level) + " returned " +
             statusText(status));
    }
}

/** Initialises; returns how long that took, in milliseconds. */
double timedStart(Library& library, const std::string& when) {
    const Stopwatch stopwatch;
    const int32_t status = library.init();
    if (status != AISR_SUCCESS) {
        failAndStop("AisrInit returned " + statusText(status) + when);
    }
    return stopwatch.milliseconds();
}

/** On a thread of its own. */
template <typename FUNC>
void elsewhere(FUNC func) {
    std::thread(func).join();
}

}  // namespace

void checkInit(const Settings& settings) {
    Library library(settings);
    takeLogLevel(library, 1);
    const double milliseconds = timedStart(library, "");
    note("AisrInit took " + oneDecimal(milliseconds) + " ms and keeps " +
         (library.hasContext() ? "a context" : "no context"));
    library.end();
}

void checkLogLevel(const Settings& settings) {
    Library library(settings);
    takeLogLevel(library, 3);
    timedStart(library, " at log level 3");
    const Frame frame({1280, 720, 1344});
    library.mustEnhance(frame, "at log level 3");
    library.end();
}

void checkInitRepeated(const Settings& settings) {
    Library library(settings);
    std::vector<double> times;
    for (int i = 0; i < kCycles; ++i) {
        // The same context slot each time, as the engine passes it.
        library.setLogLevel(i % 2 == 0 ? 1 : 3);
        times.push_back(timedStart(library, ", initialisation " + std::to_string(i + 1)));
        library.end();
    }
    const auto [least, largest] = std::minmax_element(times.begin(), times.end());
    note("AisrInit took " + oneDecimal(*least) + " to " + oneDecimal(*largest) + " ms");
    if (*least >= kSlowInitMs) {
        warn("AisrInit takes " + oneDecimal(*least) + " ms or more, for which the client waits");
    }
}

void checkInitThreads(const Settings& settings) {
    Library library(settings);
    for (int i = 0; i < kCycles; ++i) {
        elsewhere([&] { library.start(i % 2 == 0 ? 1 : 3); });
        elsewhere([&] { library.end(); });
    }
}

void checkFirstFrame(const Settings& settings) {
    Library library(settings);
    library.start();
    Frame frame({1280, 720, 1344});
    const std::string before = frame.planes();
    const Stopwatch stopwatch;
    library.mustEnhance(frame);
    note(frame.text() + ": " + oneDecimal(stopwatch.milliseconds()) + " ms" +
         (frame.planes() == before ? ", which leave the picture as it is" : ""));
    frame.next();
    library.mustEnhance(frame);
    library.end();
}

void checkContext(const Settings& settings) {
    Library library(settings);
    Frame frame({1280, 720, 1344});
    const auto must = [&](const char* entry, auto call) {
        elsewhere([&] {
            const int32_t status = call();
            if (status != AISR_SUCCESS) {
                failAndStop(entry + std::string(", on another thread than AisrInit, returned ") +
                            statusText(status));
            }
        });
    };
    elsewhere([&] { library.start(); });
    for (int i = 0; i < 3; ++i) {
        must("AisrSetParam(AISR_TAG_SET_BUF)", [&] { return library.submit(frame); });
        must("AisrProcess", [&] { return library.process(frame); });
        frame.next();
    }
    must("AisrSetParam(AISR_TAG_SET_TIMEOUT)", [&] { return library.cancel(&frame.buffer()); });
    frame.next();
    library.enhance(frame);  // What the cancel does to it is not judged here.
    must("AisrDeinit", [&] { return library.deinit(); });
}

}  // namespace checker
