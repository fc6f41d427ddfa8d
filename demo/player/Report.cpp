// SPDX-License-Identifier: Apache-2.0
#include "Report.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <locale>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace player {
namespace {

namespace fs = std::filesystem;

constexpr char kCsvName[] = "frames.csv";
constexpr char kPictureName[] = "before_after.png";
constexpr char kPlotName[] = "latency.png";

// Runs gnuplot on the commands; an empty text, or what went wrong.
std::string runGnuplot(const std::string& commands) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::string name = "gnuplot";
    std::string flag = "-e";
    std::string script = commands;
    const std::array<char*, 4> arguments = {name.data(), flag.data(), script.data(), nullptr};
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, name.c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error == ENOENT) {
        return "gnuplot is not installed";
    }
    if (error != 0) {
        return std::string("gnuplot cannot be started: ") + std::strerror(error);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 0 ? std::string() : "gnuplot failed";
}

// As a quoted string of gnuplot: inside single quotes a single quote is doubled.
std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char c : text) {
        result += c;
        if (c == '\'') {
            result += c;
        }
    }
    return result + "'";
}

struct Series {
    Outcome outcome;
    const char* colour;
};

constexpr std::array<Series, 5> kSeries = {{
    {Outcome::kEnhanced, "#2a7f3f"},
    {Outcome::kUnchanged, "#3b6fb6"},
    {Outcome::kFailed, "#8a2be2"},
    {Outcome::kExpired, "#c0392b"},
    {Outcome::kRefusedUnknown, "#555555"},  // stands for all refusals
}};

bool belongsTo(Outcome outcome, const Series& series) {
    return outcome == series.outcome || (isRefused(outcome) && isRefused(series.outcome));
}

std::string seriesFilter(const Series& series) {
    return isRefused(series.outcome)
               ? "strcol(2)[1:7] eq 'refused'"
               : std::string("strcol(2) eq '") + outcomeKey(series.outcome) + "'";
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

void writeCsv(std::ostream& out, const std::vector<FrameRecord>& frames) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(3) << "index,outcome,milliseconds\n";
    for (const FrameRecord& frame : frames) {
        text << frame.index << ',' << outcomeKey(frame.outcome) << ',';
        if (frame.outcome != Outcome::kNotNeeded) {
            text << frame.milliseconds;
        }
        text << '\n';
    }
    out << text.str();
}

std::string latencyPlot(const std::string& csv, const std::string& image, const RunResult& result) {
    std::ostringstream plot;
    plot.imbue(std::locale::classic());
    float top = 1;
    for (const FrameRecord& frame : result.frames) {
        top = std::max(top, frame.milliseconds);
    }
    if (result.limits) {
        top = std::max({top, static_cast<float>(result.limits->abortMs),
                        static_cast<float>(result.limits->overloadMs)});
    }
    const double secondsPerFrame =
        result.frames.empty() ? 0 : result.seconds / static_cast<double>(result.frames.size());
    // A little room below, where the refused frames are.
    plot << "set terminal pngcairo size 1100,500; set output " << quoted(image)
         << "; set datafile separator ','; set key tmargin center horizontal"
         << "; set title 'Time of the enhancement call, frame by frame'"
         << "; set xlabel 'seconds'; set ylabel 'milliseconds'; set grid ytics"
         << "; set xrange [0:" << std::max(result.seconds, 0.001) << "]; set yrange ["
         << -0.03F * top << ':' << top * 1.1F << "]; plot ";
    const char* separator = "";
    for (const Series& series : kSeries) {
        const bool occurs =
            std::any_of(result.frames.begin(), result.frames.end(),
                        [&](const FrameRecord& frame) { return belongsTo(frame.outcome, series); });
        if (!occurs) {
            continue;
        }
        plot << separator << quoted(csv) << " skip 1 using ($1*" << secondsPerFrame << "):("
             << seriesFilter(series) << " ? $3 : 1/0) with points pt 7 ps 0.5 lc rgb '"
             << series.colour << "' title '"
             << (isRefused(series.outcome) ? "refused" : outcomeText(series.outcome)) << "'";
        separator = ", ";
    }
    if (result.limits) {
        plot << separator << result.limits->abortMs << " with lines lw 2 lc rgb '#c0392b' title "
             << "'abort limit " << result.limits->abortMs << " ms', " << result.limits->overloadMs
             << " with lines lw 2 lc rgb '#e08e0b' title "
             << "'overload limit " << result.limits->overloadMs << " ms'";
    }
    return plot.str();
}

bool writeReport(const fs::path& folder, const RunResult& result, const Comparison& comparison,
                 std::ostream& out) {
    bool isComplete = true;
    const fs::path csv = fs::absolute(folder / kCsvName);
    std::ofstream file(csv, std::ios::trunc);
    writeCsv(file, result.frames);
    file.close();
    if (file) {
        out << "Frames:  " << csv.string() << '\n';
    } else {
        out << "No " << kCsvName << ": it cannot be written: " << std::strerror(errno) << '\n';
        isComplete = false;
    }

    const fs::path picture = fs::absolute(folder / kPictureName);
    if (!comparison.hasPicture()) {
        out << "No " << kPictureName << ": no frame was enhanced\n";
    } else if (const std::string error = comparison.writePicture(picture.string());
               !error.empty()) {
        out << "No " << kPictureName << ": " << error << '\n';
        isComplete = false;
    } else {
        out << "Picture: " << picture.string() << '\n';
    }

    const fs::path plot = fs::absolute(folder / kPlotName);
    if (Tally(result.frames).offered() == 0) {
        out << "No " << kPlotName << ": no frame was offered\n";
    } else if (const std::string error =
                   runGnuplot(latencyPlot(csv.string(), plot.string(), result));
               !error.empty()) {
        std::error_code ignored;
        fs::remove(plot, ignored);
        out << "No " << kPlotName << ": " << error << '\n';
    } else {
        out << "Latency: " << plot.string() << '\n';
    }
    return isComplete;
}

}  // namespace player
