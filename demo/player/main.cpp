// SPDX-License-Identifier: Apache-2.0
// displayengine-player: plays a video through the display engine and reports what became of it.
#include <cutils/properties.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>

#include "Console.h"
#include "FrameLog.h"
#include "Options.h"
#include "Playback.h"
#include "Report.h"
#include "Summary.h"
#include "tools/support/StopSignal.h"

namespace {

using player::Report;
using player::RunResult;

void printText(const RunResult& run, const Report& report) {
    player::printSummary(std::cout, run);
    for (const auto& [name, path] : report.files) {
        std::cout << "Wrote " << name << ": " << path << '\n';
    }
    for (const auto& [name, reason] : report.absent) {
        std::cout << "No " << name << ": " << reason << '\n';
    }
}

void printJson(const RunResult& run, const Report& report, const std::string& damage) {
    nlohmann::json summary = player::summaryAsJson(run);
    summary["files"] = report.files;
    summary["damage"] = damage;
    std::cout << summary.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

int play(const player::Options& options) {
    const StopSignal stop;
    Report report(options.output);
    player::Console console(options.isQuiet, options.isJson);
    player::FrameLog log(console, report.csv);
    player::Playback playback(options, stop, log);
    playback.run();
    player::FrameLog::Result result = log.finish();
    playback.getLimits(result.run);
    report.write(result);
    if (!options.write.empty()) {
        report.files["video"] = std::filesystem::absolute(options.write);
    }
    if (options.isJson) {
        printJson(result.run, report, playback.damage());
    } else {
        printText(result.run, report);
    }
    if (!playback.damage().empty()) {
        std::cerr << "displayengine-player: warning: '" << options.video << "' "
                  << playback.damage() << std::endl;
    }
    if (result.run.count("failed") + result.run.count("refused-not-ready") > 0) {
        std::cerr << "aisr-check LIBRARY tells what is wrong with it" << std::endl;
    }
    if (result.run.frames == 0) {
        report.failures.emplace_back("no frame was played");
    }
    for (const std::string& failure : report.failures) {
        std::cerr << "displayengine-player: " << failure << std::endl;
    }
    return report.failures.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    player::Options options;
    if (const std::optional<int> code = player::parseOptions(argc, argv, options)) {
        return *code;
    }
    gst_init(nullptr, nullptr);
    if (options.isVerbose) {
        property_set("ro.debuggable", "1");
        gst_debug_set_color_mode(GST_DEBUG_COLOR_MODE_OFF);
        gst_debug_set_threshold_for_name("displayenhance", GST_LEVEL_LOG);
    }
    try {
        return play(options);
    } catch (const std::exception& error) {
        std::cerr << "displayengine-player: " << error.what() << std::endl;
        return EXIT_FAILURE;
    }
}
