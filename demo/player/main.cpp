// SPDX-License-Identifier: Apache-2.0
// displayengine-player: plays a video through the display engine and reports what became of it.
#include <binder/ProcessState.h>

#include <cstdlib>
#include <exception>
#include <iostream>

#include "EngineLog.h"
#include "FramePool.h"
#include "Options.h"
#include "Playback.h"
#include "Report.h"
#include "Summary.h"
#include "VideoDecoder.h"
#include "tools/support/StopSignal.h"

extern "C" {
#include <libavutil/log.h>
}

namespace {

int play(const player::Options& options) {
    av_log_set_level(options.isVerbose ? AV_LOG_WARNING : AV_LOG_QUIET);
    player::VideoDecoder decoder(options.video);
    const StopSignal stop;
    player::EngineLog& log = player::collectEngineLog(options.isVerbose);
    // Never destroyed: at exit the library may still be writing a frame that expired.
    static auto& pool = *new player::FramePool();
    // The service's events come in on these threads; the library starts none of its own.
    android::ProcessState::self()->startThreadPool();

    player::Playback playback(options, decoder, log, pool, stop);
    playback.connect();
    player::prepareOutput(options.output);
    const player::RunResult result = playback.run();
    player::printSummary(std::cout, result);
    std::vector<std::string> failures =
        player::writeReport(options.output, result, playback.comparison(), std::cout);
    if (result.frames.empty()) {
        failures.push_back("no frame was played");
    }
    for (const std::string& failure : failures) {
        std::cerr << "displayengine-player: " << failure << std::endl;
    }
    return failures.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    player::Options options;
    if (const std::optional<int> code = player::parseOptions(argc, argv, options)) {
        return *code;
    }
    try {
        return play(options);
    } catch (const std::exception& error) {
        std::cerr << "displayengine-player: " << error.what() << std::endl;
        return EXIT_FAILURE;
    }
}
