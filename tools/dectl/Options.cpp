// SPDX-License-Identifier: Apache-2.0
#include "Options.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "Commands.h"

namespace control {
std::optional<int> parseOptions(int argc, const char* const* argv, Options* options) {
    CLI::App app("Asks and sets the features of the display engine service.", "dectl");
    app.footer(
        "Exit code: 0 done; 1 the service refused; 2 no service, none that answers, or wrong\n"
        "usage. In the last two cases standard output stays empty and standard error has one "
        "line.");
    app.require_subcommand(0, 1);  // with none, a wrong word is named below
    app.fallthrough();             // options may follow the command
    app.set_version_flag("--version", "dectl " DISPLAYENGINE_VERSION, "print the version and exit");
    app.add_flag("--json", options->isJson, "print JSON, one document a line");
    app.add_flag("--verbose", options->isVerbose, "show the library's whole log on standard error");
    app.add_option("--timeout", options->timeout, "seconds to wait for the service")
        ->check(CLI::Range(0.001, 3600.0))
        ->capture_default_str();
    addCommands(&app, options);
    try {
        app.parse(argc, argv);
        if (options->command == nullptr) {
            throw CLI::RequiredError("A command");
        }
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        std::cerr << "dectl: " << error.what() << " (--help lists the commands)" << std::endl;
        return kUnavailable;
    }
    return std::nullopt;
}

}  // namespace control
