// SPDX-License-Identifier: Apache-2.0
#include "Output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

namespace checker {
namespace {

constexpr char kPage[] = "docs/processing-library.md#";
constexpr char kRewind[] = "\r\x1b[K";
constexpr const char* kWords[] = {"OK", "WARN", "FAIL", "SKIP"};
constexpr const char* kColours[] = {"\x1b[32m", "\x1b[33m", "\x1b[1;31m", "\x1b[90m"};

bool isTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

bool wantsColour() {
    const char* terminal = std::getenv("TERM");
    return isTerminal() && std::getenv("NO_COLOR") == nullptr && terminal != nullptr &&
           std::strcmp(terminal, "dumb") != 0;
}

size_t countOf(const std::vector<Outcome>& outcomes, Result result) {
    return static_cast<size_t>(
        std::count_if(outcomes.begin(), outcomes.end(),
                      [result](const Outcome& outcome) { return outcome.result == result; }));
}

/** The first few reasons, and how many there are beside them. */
std::string joined(const std::vector<std::string>& texts) {
    constexpr size_t kShown = 3;
    std::string words;
    for (size_t i = 0; i < std::min(texts.size(), kShown); ++i) {
        words += (i == 0 ? "" : "; ") + texts[i];
    }
    return texts.size() <= kShown
               ? words
               : words + "; and " + std::to_string(texts.size() - kShown) + " more";
}

/** A terminal gets no controls of what the library says. */
std::string printable(std::string text) {
    const auto isControl = [](unsigned char c) { return c < ' ' || c == '\x7f'; };
    std::replace_if(text.begin(), text.end(), isControl, '?');
    return text;
}

std::string padded(const std::string& text, size_t width) {
    return text + std::string(width - std::min(width, text.size()), ' ');
}

}  // namespace

void printProgress(const Check& check, size_t number, size_t count) {
    if (isTerminal()) {
        std::cout << kRewind << '[' << number << '/' << count << "] " << check.name << std::flush;
    }
}

void printLine(const Outcome& outcome) {
    const Check& check = *outcome.check;
    const auto index = static_cast<size_t>(outcome.result);
    std::string text = check.explanation;
    if (outcome.result == Result::kSkip) {
        text = joined(outcome.notes);
    } else if (outcome.result != Result::kOk) {
        const bool hasFailed = outcome.result == Result::kFail;
        text = joined(hasFailed ? outcome.failures : outcome.warnings) + " [" + kPage + check.rule +
               "]";
    } else if (!outcome.notes.empty()) {
        text += " (" + joined(outcome.notes) + ")";
    }
    std::cout << (isTerminal() ? kRewind : "") << (wantsColour() ? kColours[index] : "")
              << padded(kWords[index], 5) << (wantsColour() ? "\x1b[0m" : "")
              << padded(check.name, 17) << printable(text) << std::endl;
}

void printSummary(const std::vector<Outcome>& outcomes, const Settings& settings) {
    double seconds = 0;
    for (const Outcome& outcome : outcomes) {
        seconds += outcome.seconds;
        if (!outcome.times.empty()) {
            std::printf("\nTimes in ms (limits: overload %d, abort %d)\n", settings.overloadMs,
                        settings.abortMs);
            std::puts("  size        frames    first   median     99 %  largest");
        }
        for (const SizeTimes& size : outcome.times) {
            std::printf("  %4dx%-7d%6d %8.2f %8.2f %8.2f %8.2f\n", size.shape.width,
                        size.shape.height, size.frames, size.first, size.median, size.high,
                        size.largest);
        }
    }
    std::printf("\n%zu checks in %.0f s: %zu ok, %zu warned, %zu failed, %zu skipped\n",
                outcomes.size(), seconds, countOf(outcomes, Result::kOk),
                countOf(outcomes, Result::kWarn), countOf(outcomes, Result::kFail),
                countOf(outcomes, Result::kSkip));
    std::fflush(stdout);
}

void printJson(const std::vector<Outcome>& outcomes, const Settings& settings) {
    using Json = nlohmann::ordered_json;
    Json document = {{"library", settings.library},
                     {"overloadMs", settings.overloadMs},
                     {"abortMs", settings.abortMs}};
    for (const Outcome& outcome : outcomes) {
        const Check& check = *outcome.check;
        document["checks"].push_back({{"name", check.name},
                                      {"result", kWords[static_cast<size_t>(outcome.result)]},
                                      {"explanation", check.explanation},
                                      {"rule", kPage + std::string(check.rule)},
                                      {"failures", outcome.failures},
                                      {"warnings", outcome.warnings},
                                      {"notes", outcome.notes},
                                      {"seconds", outcome.seconds}});
        for (const SizeTimes& times : outcome.times) {
            document["times"].push_back(Json(nlohmann::json(times)));
        }
    }
    for (size_t i = 0; i < std::size(kWords); ++i) {
        document["summary"][kWords[i]] = countOf(outcomes, static_cast<Result>(i));
    }
    std::cout << document.dump(2, ' ', false, Json::error_handler_t::replace) << std::endl;
}

void printList() {
    for (const Check& check : kChecks) {
        std::cout << padded(check.name, 17) << check.explanation << " [" << kPage << check.rule
                  << "]\n";
    }
}

}  // namespace checker
