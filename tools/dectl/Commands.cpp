// SPDX-License-Identifier: Apache-2.0
#include "Commands.h"

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

}  // namespace

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
    return {{{"supported", isSupported}, {"on", isOn}}, {}};
}

}  // namespace control
