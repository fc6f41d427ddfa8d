// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

/** What the measurements hand to the report. */
namespace bench {

/** Whether a figure is as wanted. */
enum class Verdict {
    kNone, /**< Nothing is asked of it. */
    kMet,
    kMissed, /**< A warning: the machine may be busy. */
    kFailed, /**< Missed, and no busy machine excuses it: the run fails. */
};

/** One line of a table. Texts carry their own units and may be empty. */
struct Row {
    std::string what;   /**< "a frame through the engine" */
    std::string figure; /**< "5.1 us" */
    std::string beside; /**< Floor or peer and its figure: "futex hand-off 4.3 us" */
    std::string ratio;  /**< Ratio of the medians: "1.19" */
    std::string spread; /**< Of that ratio over the repetitions: "1.15 to 1.24" */
    std::string wanted; /**< "at most 1.25" */
    Verdict verdict = Verdict::kNone;
};

/** What one program measured. */
struct Table {
    std::string title;
    std::vector<Row> rows;
    /** Remarks below the table, each a sentence or more. */
    std::vector<std::string> notes;
};

/** The table as aligned Markdown. */
void print(const Table& table, std::ostream& out);

nlohmann::json toJson(const Table& table);
/** Throws nlohmann::json::exception for anything but what toJson() makes. */
Table tableFromJson(const nlohmann::json& json);

/** "3.1 ns", "4.27 us", "12.5 ms": three significant digits. */
std::string formatTime(double nanoseconds);
/** "1.19", "12.3", "140": three significant digits, no more than two decimals. */
std::string formatRatio(double ratio);

/**
 * The end of a measuring program: prints the table, and with the arguments `--json FILE` writes it
 * there as well. The exit code: 0, or 1 when a row failed or the file could not be written.
 */
int deliver(const Table& table, int argc, char** argv);

}  // namespace bench
