// SPDX-License-Identifier: Apache-2.0
#include "Report.h"

#include <glib.h>

#include <cstring>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace player {
namespace {

namespace fs = std::filesystem;

constexpr char kNotWhole[] = "the file is not complete; is the disk full?";

/** Whether the file ends as a PNG file does. gnuplot ends with 0 also when the disk is full. */
bool isWholePng(const fs::path& path) {
    constexpr char kEnd[] = "IEND\xae\x42\x60\x82";
    constexpr std::streamoff kSize = sizeof(kEnd) - 1;
    char end[kSize] = {};
    std::ifstream file(path, std::ios::binary);
    file.seekg(-kSize, std::ios::end);
    file.read(end, kSize);
    return file && std::memcmp(end, kEnd, kSize) == 0;
}

/** Draws the latencies. Returns an empty text, or why that is impossible. */
std::string writePlot(const fs::path& path, const fs::path& csv, const RunResult& run) {
    const std::string abort = std::to_string(run.abortMs);
    const std::string overload = std::to_string(run.overloadMs);
    const char* const words[] = {"gnuplot",    "-c",          PLAYER_LATENCY_PLOT, csv.c_str(),
                                 path.c_str(), abort.c_str(), overload.c_str(),    nullptr};
    auto** const arguments = const_cast<char**>(words);  // they are not changed
    constexpr int kFlags =
        G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL | G_SPAWN_STDERR_TO_DEV_NULL;
    GError* error = nullptr;
    int status = 0;
    if (g_spawn_sync(nullptr, arguments, nullptr, static_cast<GSpawnFlags>(kFlags), nullptr,
                     nullptr, nullptr, nullptr, &status, &error) == FALSE) {
        return Ref<GError>(error)->message;
    }
    if (status != 0) {
        return "gnuplot failed";
    }
    return isWholePng(path) ? "" : kNotWhole;
}

bool isInstalled(const char* program) {
    return Ref<char>(g_find_program_in_path(program)) != nullptr;
}

}  // namespace

Report::Report(const fs::path& folder)
    : csv(fs::absolute(folder) / "frames.csv"),
      picture(fs::absolute(folder) / "before_after.png"),
      plot(fs::absolute(folder) / "latency.png") {
    std::error_code error;
    fs::create_directories(folder, error);
    for (const fs::path& path : {csv, picture, plot}) {
        if (!error) {
            fs::remove(path, error);
        }
    }
    if (error) {
        throw std::runtime_error("cannot write to the folder '" + folder.string() +
                                 "': " + error.message());
    }
}

void Report::write(const FrameLog::Result& result) {
    account(csv, result.isTableWhole ? "" : kNotWhole);
    if (result.picture) {
        account(picture, result.picture.write(picture));
    } else {
        absent[picture.filename()] = "no frame was enhanced";
    }
    if (result.run.offered() == 0) {
        absent[plot.filename()] = "no frame was offered";
    } else if (!isInstalled("gnuplot")) {
        absent[plot.filename()] = "gnuplot is not installed";
    } else {
        account(plot, writePlot(plot, csv, result.run));
    }
}

void Report::account(const fs::path& path, const std::string& error) {
    if (error.empty()) {
        files[path.filename()] = path;
        return;
    }
    std::error_code ignored;
    fs::remove(path, ignored);
    failures.push_back("cannot write '" + path.string() + "': " + error);
}

}  // namespace player
