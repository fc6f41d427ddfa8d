// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>

#include <atomic>
#include <thread>

#include "EngineLog.h"

namespace player {
namespace {

struct Collector {
    EngineLog log;
    std::thread::id player;
    bool isVerbose;
};

std::atomic<Collector*> gCollector{nullptr};

void collect(const __android_log_message* message) {
    Collector& collector = *gCollector.load();
    if (collector.isVerbose) {
        __android_log_stderr_logger(message);
    }
    collector.log.note(message->tag != nullptr ? message->tag : "",
                       message->message != nullptr ? message->message : "",
                       message->priority >= ANDROID_LOG_WARN,
                       std::this_thread::get_id() == collector.player);
}

}  // namespace

EngineLog& collectEngineLog(bool isVerbose) {
    auto* collector = new Collector{{}, std::this_thread::get_id(), isVerbose};
    gCollector = collector;
    __android_log_set_logger(collect);
    return collector->log;
}

}  // namespace player
