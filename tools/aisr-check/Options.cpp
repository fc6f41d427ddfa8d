// SPDX-License-Identifier: Apache-2.0
#include "Options.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>

namespace checker {
namespace {

void addOptions(CLI::App* app, Options* options) {
    Settings& settings = options->settings;
    app->add_option("LIBRARY", settings.library, "the processing library's file");
    app->add_option_function<std::string>(
           "--filter",
           [options](const std::string& text) {
               try {
                   options->filter = std::regex(text);
               } catch (const std::regex_error&) {
                   throw CLI::ValidationError("--filter", "'" + text + "' is no pattern");
               }
           },
           "run only the checks whose name the pattern matches")
        ->type_name("REGEX");
    app->add_flag("--list", options->isList, "list the checks and their rules, and end");
    app->add_flag("--json", options->isJson, "print one JSON document");
    app->add_option("--times", options->picture, "draw the times of each size, by gnuplot")
        ->type_name("PICTURE.png");
    app->add_option("--overload-ms", settings.overloadMs,
                    "time from which on the engine counts a frame as slow")
        ->check(CLI::Range(2, 100'000))
        ->capture_default_str();
    app->add_option("--abort-ms", settings.abortMs,
                    "time after which the engine gives a frame up; not below the overload's")
        ->check(CLI::Range(2, 100'000))
        ->capture_default_str();
    app->add_option("--fps", settings.fps, "frames per second of a stream")
        ->check(CLI::Range(1, 240))
        ->capture_default_str();
    app->add_option("--seconds", settings.seconds, "length of the soak; 0 leaves it out")
        ->check(CLI::Range(0.0, 1e6))
        ->capture_default_str();
    app->add_option("--hang-seconds", settings.hangSeconds, "an entry that takes longer hangs")
        ->check(CLI::Range(0.1, 1e6))
        ->capture_default_str();
    app->add_flag("--quick", settings.isQuick, "fewer frames and shorter streams");
    app->add_flag("--verbose", settings.isVerbose,
                  "show what the library and the engine write, on standard error");
    app->add_option("--wrapper", options->wrapper,
                    "words that start each check's process, such as an emulator and its options")
        ->type_name("COMMAND");
    app->add_option("--run-check", options->check)->group("");  // the tool's own
    app->set_version_flag("--version", "aisr-check " AISR_CHECK_VERSION);
}

}  // namespace

std::optional<int> parseOptions(int argc, const char* const* argv, Options* options) {
    CLI::App app(
        "Checks a processing library of the display engine: what the engine does with it, and what "
        "it does to its surroundings. Frames are NV12. Each check runs in a process of its own.",
        "aisr-check");
    app.footer(
        "Each check prints OK, WARN (allowed, or perhaps the machine's doing), FAIL (breaks a rule "
        "of\ndocs/processing-library.md) or SKIP (says nothing, since another has failed).\n"
        "Exit code: 0 nothing failed; 1 something failed; 2 wrong usage or no such file.");
    addOptions(&app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& done) {
        return app.exit(done);
    } catch (const CLI::ParseError& error) {
        return complain(kUnusable, error.what() + std::string(" (--help lists the options)"));
    }
    if (options->isList) {
        return std::nullopt;
    }
    Settings& settings = options->settings;
    if (settings.library.empty()) {
        return complain(kUnusable, "LIBRARY is required (--help lists the options)");
    }
    if (settings.overloadMs > settings.abortMs) {
        return complain(kUnusable, "--overload-ms is above --abort-ms");
    }
    if (!std::filesystem::is_regular_file(settings.library)) {
        return complain(kUnusable, "no such file: " + settings.library);
    }
    settings.library = std::filesystem::absolute(settings.library);
    return std::nullopt;
}

int complain(ExitCode code, const std::string& reason) {
    std::cerr << "aisr-check: " << reason << std::endl;
    return code;
}

}  // namespace checker
