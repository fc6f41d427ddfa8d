// SPDX-License-Identifier: Apache-2.0
// Opening and closing the library.
#include <dlfcn.h>

#include <algorithm>

#include "Check.h"
#include "Library.h"
#include "Report.h"
#include "SymbolTable.h"
#include "Usage.h"

namespace checker {
namespace {

/** A library may let its threads run out for so long. */
constexpr double kThreadPatienceMs = 1000;

std::string joined(const std::vector<std::string>& names) {
    constexpr size_t kShown = 4;
    std::string words;
    for (size_t i = 0; i < std::min(names.size(), kShown); ++i) {
        words += (i == 0 ? "" : ", ") + names[i];
    }
    return names.size() > kShown ? words + " and " + std::to_string(names.size() - kShown) + " more"
                                 : words;
}

bool isEntry(const std::string& name) {
    return std::find(kEntries.begin(), kEntries.end(), name) != kEntries.end();
}

/** What a linker adds to every library. */
bool isLinkers(const std::string& name) {
    constexpr const char* kNames[] = {"_init", "_fini", "_edata", "_end", "__bss_start"};
    return std::find(std::begin(kNames), std::end(kNames), name) != std::end(kNames);
}

bool isLoaded(const Settings& settings) {
    return dlopen(settings.library.c_str(), RTLD_NOW | RTLD_NOLOAD) != nullptr;
}

}  // namespace

void checkOpen(const Settings& settings) {
    const Stopwatch stopwatch;
    const Library library(settings);
    note("loaded in " + oneDecimal(stopwatch.milliseconds()) + " ms");
}

void checkEntries(const Settings& settings) {
    const Library library(settings);
    std::vector<std::string> missing;
    for (const char* entry : kEntries) {
        if (library.find(entry) == nullptr) {
            missing.emplace_back(entry);
        }
    }
    if (!missing.empty()) {
        fail(joined(missing) + (missing.size() > 1 ? " are" : " is") + " not exported");
    }
    for (const DynamicSymbol& symbol : exportedSymbols(settings.library)) {
        if (isEntry(symbol.name) && !symbol.isFunction) {
            fail(symbol.name + " is not a function");
        }
    }
}

void checkExports(const Settings& settings) {
    std::vector<std::string> others;
    std::vector<std::string> unique;
    for (const DynamicSymbol& symbol : exportedSymbols(settings.library)) {
        if (!isEntry(symbol.name) && !isLinkers(symbol.name)) {
            (symbol.isUnique ? unique : others).push_back(symbol.name);
        }
    }
    if (!others.empty()) {
        warn("also exports " + joined(others));
    }
    if (!unique.empty()) {
        warn("cannot be unloaded for unique symbols: " + joined(unique));
    }
}

void checkThreadsGone(const Settings& settings) {
    const int64_t before = threadCount();
    Library library(settings);
    library.start();
    Frame frame({1280, 720, 1344});
    library.mustEnhance(frame);
    const int64_t during = threadCount();
    library.end();
    const Stopwatch stopwatch;
    int64_t left = threadCount() - before;
    const bool isAtOnce = left <= 0;
    while (left > 0 && stopwatch.milliseconds() < kThreadPatienceMs) {
        pause(5);
        left = threadCount() - before;
    }
    if (left > 0) {
        fail("after AisrDeinit " + std::to_string(left) +
             (left == 1 ? " thread is left" : " threads are left"));
    } else if (!isAtOnce) {
        warn("the last thread ended " + oneDecimal(stopwatch.milliseconds()) +
             " ms after AisrDeinit had returned");
    } else {
        note("up to " + std::to_string(during - before) + " threads of its own");
    }
}

void checkUnload(const Settings& settings) {
    for (const bool isUsed : {false, true}) {
        Library library(settings);
        if (isUsed) {
            library.start();
            Frame frame({1280, 720, 1344});
            library.mustEnhance(frame);
            library.end();
        }
        library.close();
        if (isLoaded(settings)) {
            warn(isUsed ? "stays loaded after a frame"
                        : "stays loaded, though it was not even initialised");
            return;
        }
    }
}

}  // namespace checker
