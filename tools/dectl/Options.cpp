// SPDX-License-Identifier: Apache-2.0
#include "Options.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <limits>

#include "Commands.h"

namespace control {
namespace {

void addLevels(CLI::App* command, Arguments* arguments) {
    command->add_option("LEVEL", arguments->levels, "brightness levels, 0 or more, sent in turn")
        ->required()
        ->check(CLI::Range(0, std::numeric_limits<int32_t>::max()));
}

void addScene(CLI::App* command, Arguments* arguments) {
    command->add_option("SCENE", arguments->scene, "number of the scene")->required();
    command->add_option("VALUE", arguments->value, "the scene's value")->required();
}

void addFrameRate(CLI::App* command, Arguments* arguments) {
    command->add_option("FPS", arguments->frameRate, "frames per second, passed on as text")
        ->required();
}

void addSwitch(CLI::App* command, Arguments* arguments) {
    command->add_option("STATE", arguments->cwb, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));
}

struct Entry {
    const char* name;
    const char* help;
    Command command;
    void (*addArguments)(CLI::App*, Arguments*);
};

constexpr Entry kEntries[] = {
    {"panel-name", "name of the display panel", readPanelName, nullptr},
    {"brightness", "send brightness levels; a level sent last is not sent again", setBrightness,
     addLevels},
    {"reading", "support of the reading mode", readReading, nullptr},
    {"global-reading", "support of the global reading mode", readGlobalReading, nullptr},
    {"folding", "support and alpha of the folding screen's compensation", readFolding, nullptr},
    {"local-hbm", "support of the local high-brightness mode", readLocalHbm, nullptr},
    {"scene", "set a scene", setScene, addScene},
    {"frame-rate", "set the frame rate", setFrameRate, addFrameRate},
    {"cwb", "switch the CWB force-enable", setCwb, addSwitch},
    {"video", "whether video enhancement is supported, and on", readVideo, nullptr},
    {"watch", "print the service's events, one a line, until interrupted", watchEvents, nullptr},
};

}  // namespace

std::optional<int> parseOptions(int argc, const char* const* argv, Options* options) {
    CLI::App app("Asks and sets the features of the display engine service.", "dectl");
    app.footer(
        "Exit code: 0 done; 1 the service refused; 2 no service, or wrong usage. In the last two\n"
        "cases standard output stays empty and standard error has one line.");
    app.require_subcommand(0, 1);  // with none, a wrong word is named below
    app.fallthrough();             // options may follow the command
    app.add_flag("--json", options->isJson, "print JSON, one document a line");
    app.add_flag("--verbose", options->isVerbose, "show the library's log on standard error");
    for (const Entry& entry : kEntries) {
        CLI::App* const command = app.add_subcommand(entry.name, entry.help);
        if (entry.addArguments != nullptr) {
            entry.addArguments(command, &options->arguments);
        }
        command->callback([options, &entry] { options->command = entry.command; });
    }
    try {
        app.parse(argc, argv);
        if (options->command == nullptr) {
            throw CLI::RequiredError("A command");
        }
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        std::cerr << "dectl: " << error.what() << " (--help lists the commands)" << std::endl;
        return kUnavailable;
    }
    return std::nullopt;
}

}  // namespace control
