// SPDX-License-Identifier: Apache-2.0
// aisr-check: runs a processing library through everything that the engine does to it, and through
// what makers get wrong.
#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <sstream>

#include "CheckProcess.h"
#include "Options.h"
#include "Output.h"

// The leaks are the library's, and told by a check; a sanitizer that the tool is built with would
// end the processes of checks for them.
extern "C" int __lsan_is_turned_off();
extern "C" int __lsan_is_turned_off() {
    return 1;
}

namespace checker {
namespace {

std::vector<const Check*> chosenChecks(const Options& options) {
    std::vector<const Check*> chosen;
    for (const Check& check : kChecks) {
        const bool isLeftOut = check.run == checkSoak && options.settings.seconds <= 0;
        if (!isLeftOut && std::regex_search(check.name, options.filter)) {
            chosen.push_back(&check);
        }
    }
    return chosen;
}

/** The command that starts this program again with the same arguments. */
std::vector<std::string> ownCommand(const Options& options, int argc, char** argv) {
    std::istringstream wrapper(options.wrapper);
    std::vector<std::string> command{std::istream_iterator<std::string>(wrapper), {}};
    command.push_back(std::filesystem::read_symlink("/proc/self/exe"));
    command.insert(command.end(), argv + 1, argv + argc);
    return command;
}

/** A check that this one needs and that has failed or was skipped; else empty. */
std::string missingNeed(const Check& check, const std::vector<Outcome>& outcomes) {
    std::istringstream needs(check.needs);
    for (std::string need; needs >> need;) {
        const bool isMissing =
            std::any_of(outcomes.begin(), outcomes.end(), [&](const Outcome& outcome) {
                return need == outcome.check->name &&
                       (outcome.result == Result::kFail || outcome.result == Result::kSkip);
            });
        if (isMissing) {
            return need;
        }
    }
    return "";
}

Outcome skipped(const Check& check, const std::string& need) {
    Outcome outcome;
    outcome.check = &check;
    outcome.result = Result::kSkip;
    outcome.notes = {"says nothing without " + need};
    return outcome;
}

int run(const Options& options, const std::vector<std::string>& command) {
    const std::vector<const Check*> checks = chosenChecks(options);
    if (checks.empty()) {
        return complain(kUnusable, "no check has such a name (--list shows them)");
    }
    const CheckStarter starter(options.settings, command);
    std::vector<Outcome> outcomes;
    for (const Check* check : checks) {
        if (!options.isJson) {
            printProgress(*check, outcomes.size() + 1, checks.size());
        }
        const std::string need = missingNeed(*check, outcomes);
        outcomes.push_back(need.empty() ? starter.run(*check) : skipped(*check, need));
        if (!options.isJson) {
            printLine(outcomes.back());
        }
        if (!std::cout) {
            return complain(kUnusable, "cannot write to standard output");
        }
    }
    (options.isJson ? printJson : printSummary)(outcomes, options.settings);
    if (!options.picture.empty()) {
        const std::string why = drawTimes(outcomes, options.settings, options.picture);
        if (!why.empty()) {
            return complain(kUnusable, why);
        }
    }
    const bool hasFailed = std::any_of(outcomes.begin(), outcomes.end(), [](const Outcome& one) {
        return one.result == Result::kFail;
    });
    return hasFailed ? kFailed : kPassed;
}

}  // namespace
}  // namespace checker

int main(int argc, char** argv) {
    checker::Options options;
    if (const std::optional<int> code = checker::parseOptions(argc, argv, &options)) {
        return *code;
    }
    try {
        if (options.isList) {
            checker::printList();
            return checker::kPassed;
        }
        if (!options.check.empty()) {
            return checker::runCheckHere(options.check, options.settings);
        }
        return checker::run(options, checker::ownCommand(options, argc, argv));
    } catch (const std::exception& error) {
        return checker::complain(checker::kUnusable, error.what());
    }
}
