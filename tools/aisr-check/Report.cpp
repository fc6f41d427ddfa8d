// SPDX-License-Identifier: Apache-2.0
#include "Report.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace checker {
namespace {

/** One write, so that the lines of several threads stay whole. */
void send(const char* kind, const nlohmann::json& value) {
    const std::string line = nlohmann::json({{kind, value}})
                                 .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
                             "\n";
    [[maybe_unused]] const ssize_t written =
        TEMP_FAILURE_RETRY(write(kReportDescriptor, line.data(), line.size()));
}

}  // namespace

void note(const std::string& text) {
    send("note", text);
}

void warn(const std::string& text) {
    send("warn", text);
}

void fail(const std::string& text) {
    send("fail", text);
}

void reportTimes(const SizeTimes& times) {
    send("times", times);
}

void stop() {
    sharedState().isDone = true;
    _exit(0);
}

void failAndStop(const std::string& text) {
    fail(text);
    stop();
}

std::string oneDecimal(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

}  // namespace checker
