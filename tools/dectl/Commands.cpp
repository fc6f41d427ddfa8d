// SPDX-License-Identifier: Apache-2.0
#include "Commands.h"

#include <CLI/CLI.hpp>
#include <limits>

#include "client/ServiceConnection.h"

namespace control {
namespace {

/** The outcome of a setting, of which the service's result tells: 0 for success. */
Outcome settingOutcome(const std::string& setting, int result) {
    if (result != 0) {
        return {nullptr, setting + ", result " + std::to_string(result)};
    }
    return {{{"result", result}}, {}};
}

Outcome readPanelName(Session& session) {
    std::string name;
    const int result = session.display->getPanelName(name);
    if (result != 0) {
        return {nullptr, "the panel's name, result " + std::to_string(result)};
    }
    return {{{"panel_name", name}}, {}};
}

Outcome setBrightness(Session& session) {
    int support = 0;
    for (const int32_t level : session.arguments.levels) {
        support = session.display->displayengineSetBrightness(level);
        if (support < 1) {
            return {nullptr, "brightness levels: the panel does not support them"};
        }
    }
    return {{{"level", session.arguments.levels.back()}, {"supported", support}}, {}};
}

Outcome readReading(Session& session) {
    return {{{"reading", session.display->getReadingSupport()}}, {}};
}

Outcome readGlobalReading(Session& session) {
    return {{{"global_reading", session.display->getGlobalReadingSupport()}}, {}};
}

Outcome readFolding(Session& session) {
    // The alpha of a screen that needs no compensation is no failure, so it is not asked for.
    const int support = session.display->getFoldingCompensationSupported();
    Json values = {{"supported", support}, {"alpha", nullptr}};
    if (support != 0) {
        values["alpha"] = session.display->getFoldingCompensationAlpha();
    }
    return {values, {}};
}

Outcome readLocalHbm(Session& session) {
    return {{{"local_hbm", session.display->getLocalHBMSupport()}}, {}};
}

Outcome setScene(Session& session) {
    const Arguments& arguments = session.arguments;
    const int result = session.display->setScene(arguments.scene, arguments.value);
    return settingOutcome("scene " + std::to_string(arguments.scene) + " with value " +
                              std::to_string(arguments.value),
                          result);
}

Outcome setFrameRate(Session& session) {
    return settingOutcome("the frame rate",
                          session.display->setFrameRate(session.arguments.frameRate));
}

Outcome setCwb(Session& session) {
    return settingOutcome("the CWB switch",
                          setCwbForceEnable(session.arguments.cwb == "on" ? 1 : 0));
}

Outcome readVideo(Session& session) {
    const bool isSupported = session.display->isVideoEngineSupported();
    const bool isOn = session.display->getVideoAppConfig();
    return {{{"supported", isSupported}, {"on", isOn}}, {}, {}, configurationWarnings(session)};
}

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
    {"dump", "the state that the service describes", dumpState, nullptr},
    {"watch", "print the service's events, one a line, until interrupted", watchEvents, nullptr},
};

}  // namespace

void addCommands(CLI::App* app, Options* options) {
    for (const Entry& entry : kEntries) {
        CLI::App* const command = app->add_subcommand(entry.name, entry.help);
        if (entry.addArguments != nullptr) {
            entry.addArguments(command, &options->arguments);
        }
        command->callback([options, &entry] { options->command = entry.command; });
    }
}

}  // namespace control
