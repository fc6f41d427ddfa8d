// SPDX-License-Identifier: Apache-2.0
#include "Output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace checker {
namespace {

constexpr char kPage[] = "docs/processing-library.md#";
constexpr char kRewind[] = "\r\x1b[K";
constexpr const char* kWords[] = {"OK", "SKIP", "WARN", "FAIL"};
constexpr const char* kColours[] = {"\x1b[32m", "\x1b[90m", "\x1b[33m", "\x1b[1;31m"};

const char* wordOf(Result result) {
    return kWords[static_cast<size_t>(result)];
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
    return texts.size() > kShown
               ? words + "; and " + std::to_string(texts.size() - kShown) + " more"
               : words;
}

/** What the library says may hold anything; a terminal gets no controls of it. */
std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, '?');
    return text;
}

std::string padded(const std::string& text, size_t width) {
    return text + std::string(width - std::min(width, text.size()), ' ');
}

void printTimes(const std::vector<SizeTimes>& times, const Settings& settings) {
    std::printf("\nTimes in ms (limits: overload %d, abort %d)\n", settings.overloadMs,
                settings.abortMs);
    std::printf("  %-12s %8s %8s %8s %8s %8s\n", "size", "frames", "first", "median", "99 %",
                "largest");
    for (const SizeTimes& size : times) {
        const std::string name =
            std::to_string(size.shape.width) + "x" + std::to_string(size.shape.height);
        std::printf("  %-12s %8d %8.2f %8.2f %8.2f %8.2f\n", name.c_str(), size.frames, size.first,
                    size.median, size.high, size.largest);
    }
}

nlohmann::ordered_json toJson(const Outcome& outcome) {
    return {{"name", outcome.check->name},
            {"result", wordOf(outcome.result)},
            {"explanation", outcome.check->explanation},
            {"rule", kPage + std::string(outcome.check->rule)},
            {"failures", outcome.failures},
            {"warnings", outcome.warnings},
            {"notes", outcome.notes},
            {"seconds", outcome.seconds}};
}

bool wantsColour() {
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr &&
           terminal != nullptr && std::string(terminal) != "dumb";
}

}  // namespace

Output::Output(const Settings& settings, bool isJson)
    : mSettings(settings),
      mIsJson(isJson),
      mIsTerminal(!isJson && isatty(STDOUT_FILENO) == 1),
      mIsColoured(!isJson && wantsColour()) {}

void Output::begin(const Check& check, size_t number, size_t count) {
    if (mIsTerminal) {
        std::cout << kRewind << '[' << number << '/' << count << "] " << check.name << std::flush;
    }
}

void Output::end(const Outcome& outcome) {
    if (mIsJson) {
        return;
    }
    const Check& check = *outcome.check;
    std::string text = check.explanation;
    if (outcome.result == Result::kOk && !outcome.notes.empty()) {
        text += " (" + joined(outcome.notes) + ")";
    } else if (outcome.result == Result::kSkipped) {
        text = joined(outcome.notes);
    } else if (outcome.result != Result::kOk) {
        const bool hasFailed = outcome.result == Result::kFail;
        text = joined(hasFailed ? outcome.failures : outcome.warnings) + " [" + kPage + check.rule +
               "]";
    }
    const auto index = static_cast<size_t>(outcome.result);
    std::cout << (mIsTerminal ? kRewind : "") << (mIsColoured ? kColours[index] : "")
              << padded(kWords[index], 5) << (mIsColoured ? "\x1b[0m" : "")
              << padded(check.name, 17) << printable(text) << std::endl;
}

void Output::summarise(const std::vector<Outcome>& outcomes) {
    if (mIsJson) {
        nlohmann::ordered_json document = {{"library", mSettings.library},
                                           {"overloadMs", mSettings.overloadMs},
                                           {"abortMs", mSettings.abortMs}};
        for (const Outcome& outcome : outcomes) {
            document["checks"].push_back(toJson(outcome));
            for (const SizeTimes& times : outcome.times) {
                document["times"].push_back(nlohmann::ordered_json(nlohmann::json(times)));
            }
        }
        for (const Result result : {Result::kOk, Result::kWarn, Result::kFail, Result::kSkipped}) {
            document["summary"][wordOf(result)] = countOf(outcomes, result);
        }
        using Json = nlohmann::ordered_json;
        std::cout << document.dump(2, ' ', false, Json::error_handler_t::replace) << std::endl;
        return;
    }
    for (const Outcome& outcome : outcomes) {
        if (!outcome.times.empty()) {
            printTimes(outcome.times, mSettings);
        }
    }
    double seconds = 0;
    for (const Outcome& outcome : outcomes) {
        seconds += outcome.seconds;
    }
    std::printf("\n%zu checks in %.0f s: %zu ok, %zu warned, %zu failed, %zu skipped\n",
                outcomes.size(), seconds, countOf(outcomes, Result::kOk),
                countOf(outcomes, Result::kWarn), countOf(outcomes, Result::kFail),
                countOf(outcomes, Result::kSkipped));
    std::fflush(stdout);
}

void Output::list() {
    for (const Check& check : allChecks()) {
        std::cout << padded(check.name, 17) << check.explanation << " [" << kPage << check.rule
                  << "]\n";
    }
}

}  // namespace checker
