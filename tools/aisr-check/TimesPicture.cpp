// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "Output.h"

namespace checker {
namespace {

/** Ahead of it stand the limits and the data: title, first and the six figures of each size. */
constexpr char kPlot[] = R"(
set terminal pngcairo size 1100,500
set output picture
set key tmargin center horizontal
set title "Time of a frame in the processing library, by size"
set ylabel "milliseconds"
stats $times using 8 nooutput
count = STATS_records
top = STATS_max > abortMs ? STATS_max : abortMs
stats $times using 2 nooutput
top = STATS_max > top ? STATS_max : top
set xrange [-0.6:count - 0.4]
set yrange [0:1.1 * top]
set grid ytics
set boxwidth 0.4
set style fill solid 0.3
plot $times using 0:4:3:7:6:xtic(1) with candlesticks whiskerbars 0.5 lc rgb "#3b6fb6" \
         title "smallest, quartiles and 99 %", \
     $times using 0:5:5:5:5 with candlesticks lw 2 lc rgb "#2a7f3f" title "median", \
     $times using 0:8 with points pt 2 lc rgb "#555555" title "largest", \
     $times using 0:2 with points pt 7 lc rgb "#8a2be2" title "first", \
     abortMs with lines lw 2 lc rgb "#c0392b" title sprintf("abort limit %d ms", abortMs), \
     overloadMs with lines lw 2 lc rgb "#e08e0b" title sprintf("overload limit %d ms", overloadMs)
)";

/** As a string of gnuplot's that takes every character as it is. */
std::string quoted(const std::string& text) {
    std::string words = "'";
    for (const char c : text) {
        words += c == '\'' ? "''" : std::string(1, c);
    }
    return words + "'";
}

}  // namespace

std::string drawTimes(const std::vector<Outcome>& outcomes, const Settings& settings,
                      const std::string& picture) {
    std::ostringstream script;
    script << "picture = " << quoted(picture) << "\nabortMs = " << settings.abortMs
           << "\noverloadMs = " << settings.overloadMs << "\n$times << END\n";
    bool hasTimes = false;
    for (const Outcome& outcome : outcomes) {
        hasTimes = hasTimes || !outcome.times.empty();
        for (const SizeTimes& size : outcome.times) {
            script << '"' << size.shape.width << 'x' << size.shape.height << "\" " << size.first
                   << ' ' << size.least << ' ' << size.lowerQuartile << ' ' << size.median << ' '
                   << size.upperQuartile << ' ' << size.high << ' ' << size.largest << '\n';
        }
    }
    script << "END" << kPlot;
    if (!hasTimes) {
        return "no times were measured that could be drawn";
    }
    std::error_code error;
    std::filesystem::remove(picture, error);
    // It writes to standard output what it cannot write to the file.
    FILE* gnuplot = popen("gnuplot - >/dev/null 2>&1", "w");
    if (gnuplot == nullptr) {
        return "gnuplot cannot be started";
    }
    std::fputs(script.str().c_str(), gnuplot);
    const bool isDone = pclose(gnuplot) == 0;
    return isDone && std::filesystem::exists(picture, error) ? ""
                                                             : "gnuplot has not drawn " + picture;
}

}  // namespace checker
