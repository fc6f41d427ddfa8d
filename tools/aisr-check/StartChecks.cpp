// SPDX-License-Identifier: Apache-2.0
// Initialising, de-initialising and the first frame.
#include <algorithm>
#include <thread>

#include "Check.h"
#include "Library.h"
#include "Report.h"
#include "Usage.h"

namespace checker {
namespace {

constexpr int kCycles = 50;
/** The engine initialises while the client's call of a frame waits. */
constexpr double kSlowInitMs = 100;

void warnOfLogLevel(int32_t level, int32_t status) {
    if (status != AISR_SUCCESS) {
        warn("AisrSetParam(AISR_TAG_SET_LOG_LEVEL) with " + std::to_string(level) + " returned " +
             statusText(status));
    }
}

/** On a thread of its own. */
template <typename FUNC>
void elsewhere(FUNC func) {
    std::thread(func).join();
}

}  // namespace

void checkInit(const Settings& settings) {
    Library library(settings);
    warnOfLogLevel(1, library.setLogLevel(1));
    const Stopwatch stopwatch;
    const int32_t status = library.init();
    const double initMs = stopwatch.milliseconds();
    if (status != AISR_SUCCESS) {
        failAndStop("AisrInit returned " + statusText(status));
    }
    note("AisrInit took " + oneDecimal(initMs) + " ms and " +
         (library.context() != nullptr ? "keeps a context" : "keeps no context"));
    library.end();
}

void checkLogLevel(const Settings& settings) {
    Library library(settings);
    warnOfLogLevel(3, library.setLogLevel(3));
    const int32_t status = library.init();
    if (status != AISR_SUCCESS) {
        failAndStop("AisrInit returned " + statusText(status));
    }
    Frame frame({1280, 720, 1344});
    library.enhance(frame);
    library.end();
}

void checkInitRepeated(const Settings& settings) {
    Library library(settings);
    std::array<Usage, 3> usage{};
    double fastest = 1e9;
    double slowest = 0;
    const auto cycle = [&](int i) {
        // The same context slot each time, as the engine passes it.
        library.setLogLevel(i % 2 == 0 ? 1 : 3);
        const Stopwatch stopwatch;
        const int32_t status = library.init();
        fastest = std::min(fastest, stopwatch.milliseconds());
        slowest = std::max(slowest, stopwatch.milliseconds());
        if (status != AISR_SUCCESS) {
            failAndStop("AisrInit returned " + statusText(status) + ", initialisation " +
                        std::to_string(i + 1));
        }
        library.end();
    };
    constexpr int kWarmUp = 10;
    for (int i = 0; i < kCycles; ++i) {
        if (i >= kWarmUp && (i - kWarmUp) % ((kCycles - kWarmUp) / 2) == 0) {
            usage[(i - kWarmUp) / ((kCycles - kWarmUp) / 2)] = measureUsage();
        }
        cycle(i);
    }
    usage[2] = measureUsage();
    reportGrowth(usage[0], usage[1], usage[2], kCycles - kWarmUp, "initialisation", false);
    if (fastest >= kSlowInitMs) {
        warn("AisrInit takes " + oneDecimal(fastest) + " ms or more, and the client waits for it");
    }
    note("AisrInit took " + oneDecimal(fastest) + " to " + oneDecimal(slowest) + " ms");
}

void checkInitThreads(const Settings& settings) {
    Library library(settings);
    const int cycles = settings.count(kCycles, kCycles / 5);
    for (int i = 0; i < cycles; ++i) {
        elsewhere([&] { library.start(i % 2 == 0 ? 1 : 3); });
        elsewhere([&] { library.end(); });
    }
}

void checkFirstFrame(const Settings& settings) {
    Library library(settings);
    library.start();
    Frame frame({1280, 720, 1344});
    const std::vector<uint8_t> before = frame.picture();
    const Stopwatch stopwatch;
    library.mustEnhance(frame);
    note(frame.text() + ": " + oneDecimal(stopwatch.milliseconds()) + " ms" +
         (frame.picture() == before ? ", the picture is as it was" : ""));
    frame.next();
    library.mustEnhance(frame);
    library.end();
}

void checkContext(const Settings& settings) {
    Library library(settings);
    Frame frame({1280, 720, 1344});
    const auto on = [&](const char* thread, const char* entry, int32_t status) {
        if (status != AISR_SUCCESS) {
            failAndStop(std::string(entry) + " on " + thread + " returned " + statusText(status));
        }
    };
    elsewhere([&] { library.start(); });
    elsewhere([&] {
        for (int i = 0; i < 3; ++i) {
            on("another thread than AisrInit", "AisrSetParam(AISR_TAG_SET_BUF)",
               library.submit(frame));
            on("another thread than AisrInit", "AisrProcess", library.process(frame));
            frame.next();
        }
    });
    elsewhere([&] {
        on("a thread of the client", "AisrSetParam(AISR_TAG_SET_TIMEOUT)",
           library.cancel(frame.buffer()));
    });
    frame.next();
    elsewhere([&] { library.enhance(frame); });  // What the cancel does to it is not judged here.
    elsewhere([&] { on("another thread than AisrInit", "AisrDeinit", library.deinit()); });
}

}  // namespace checker
