// SPDX-License-Identifier: Apache-2.0
#include "Report.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace player {
namespace {

namespace fs = std::filesystem;

constexpr char kCsvName[] = "frames.csv";
constexpr char kPictureName[] = "before_after.png";
constexpr char kPlotName[] = "latency.png";

/** Why there is no file; empty when there is one. */
struct Missing {
    std::string why;
    bool isFailure = true; /**< False when there is nothing to write, or nothing to write it. */
};

Missing writeCsv(const fs::path& path, const RunResult& result) {
    std::ofstream file(path, std::ios::trunc);
    file << std::fixed << std::setprecision(3) << "index,outcome,milliseconds\n";
    size_t index = 0;
    for (const FrameRecord& frame : result.frames) {
        file << index++ << ',' << outcomeKey(frame.outcome) << ',';
        if (frame.outcome != Outcome::kNotNeeded) {
            file << frame.milliseconds;
        }
        file << '\n';
    }
    file.close();
    return {file ? "" : std::strerror(errno)};
}

/** Runs a program. Returns the error number of its start, and sets `status` as waitpid() does. */
int runProgram(std::vector<std::string> arguments, int* status) {
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_RDWR, 0);
    }
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, pointers.front(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    while (error == 0 && waitpid(child, status, 0) < 0 && errno == EINTR) {
    }
    return error;
}

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

Missing writePlot(const fs::path& path, const fs::path& csv, const RunResult& result) {
    const EngineLog::Limits limits = result.limits.value_or(EngineLog::Limits{});
    const double pace = result.seconds / static_cast<double>(result.frames.size());
    int status = 0;
    const int error = runProgram(
        {"gnuplot", "-c", PLAYER_LATENCY_PLOT, csv.string(), path.string(), std::to_string(pace),
         std::to_string(limits.abortMs), std::to_string(limits.overloadMs)},
        &status);
    if (error == ENOENT) {
        return {"gnuplot is not installed", false};
    }
    if (error != 0) {
        return {std::string("gnuplot cannot be started: ") + std::strerror(error)};
    }
    if (status != 0) {
        return {"gnuplot failed"};
    }
    return {isWholePng(path) ? "" : "the file is not complete; is the disk full?"};
}

}  // namespace

void prepareOutput(const fs::path& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    for (const char* name : {kCsvName, kPictureName, kPlotName}) {
        if (!error) {
            fs::remove(folder / name, error);
        }
    }
    if (error) {
        throw std::runtime_error("cannot write to the folder '" + folder.string() +
                                 "': " + error.message());
    }
}

std::vector<std::string> writeReport(const fs::path& folder, const RunResult& result,
                                     const Comparison& comparison, std::ostream& out) {
    std::vector<std::string> failures;
    const auto account = [&](const char* title, const fs::path& path, const Missing& missing) {
        if (missing.why.empty()) {
            out << title << path.string() << '\n';
        } else if (missing.isFailure) {
            std::error_code ignored;
            fs::remove(path, ignored);
            failures.push_back("cannot write '" + path.string() + "': " + missing.why);
        } else {
            out << "No " << path.filename().string() << ": " << missing.why << '\n';
        }
    };
    const fs::path whole = fs::absolute(folder);
    const fs::path csv = whole / kCsvName;
    account("Frames:  ", csv, writeCsv(csv, result));

    const fs::path picture = whole / kPictureName;
    account("Picture: ", picture,
            comparison.hasPicture() ? Missing{comparison.writePicture(picture)}
                                    : Missing{"no frame was enhanced", false});

    const fs::path plot = whole / kPlotName;
    account("Latency: ", plot,
            result.offered() > 0 ? writePlot(plot, csv, result)
                                 : Missing{"no frame was offered", false});
    return failures;
}

}  // namespace player
