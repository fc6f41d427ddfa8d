// SPDX-License-Identifier: Apache-2.0
#include "support/Table.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

namespace bench {

NLOHMANN_JSON_SERIALIZE_ENUM(Verdict, {{Verdict::kNone, ""},
                                       {Verdict::kMet, "met"},
                                       {Verdict::kMissed, "MISSED"},
                                       {Verdict::kFailed, "FAILED"}})
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Row, what, figure, beside, ratio, spread, wanted, verdict)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Table, title, rows, notes)

namespace {

constexpr size_t kColumns = 7;
using Cells = std::array<std::string, kColumns>;

Cells cellsOf(const Row& row) {
    return {row.what,
            row.figure,
            row.beside,
            row.ratio,
            row.spread,
            row.wanted,
            nlohmann::json(row.verdict).get<std::string>()};
}

void printLine(const Cells& cells, const std::array<size_t, kColumns>& widths, std::ostream& out) {
    for (size_t column = 0; column < kColumns; ++column) {
        const std::string& cell = cells[column];
        out << "| " << cell << std::string(widths[column] - cell.size(), ' ') << ' ';
    }
    out << "|\n";
}

std::string format(double value, int decimals, const char* unit) {
    char text[64];
    std::snprintf(text, sizeof(text), "%.*f%s", decimals, value, unit);
    return text;
}

/** How many decimals make three significant digits. */
int decimalsFor(double value, int most) {
    const int integerDigits = value < 1 ? 1 : static_cast<int>(std::log10(value)) + 1;
    return std::clamp(3 - integerDigits, 0, most);
}

}  // namespace

void print(const Table& table, std::ostream& out) {
    std::vector<Cells> lines{
        {"what", "figure", "floor or peer", "ratio", "spread", "wanted", "verdict"}};
    for (const Row& row : table.rows) {
        lines.push_back(cellsOf(row));
    }
    std::array<size_t, kColumns> widths{};
    for (const Cells& cells : lines) {
        for (size_t column = 0; column < kColumns; ++column) {
            widths[column] = std::max(widths[column], cells[column].size());
        }
    }
    Cells rule;
    for (size_t column = 0; column < kColumns; ++column) {
        rule[column] = std::string(widths[column], '-');
    }
    lines.insert(lines.begin() + 1, rule);

    out << "### " << table.title << "\n\n";
    for (const Cells& cells : lines) {
        printLine(cells, widths, out);
    }
    for (const std::string& note : table.notes) {
        out << "\n" << note << "\n";
    }
    out << "\n";
}

nlohmann::json toJson(const Table& table) {
    return table;
}

Table tableFromJson(const nlohmann::json& json) {
    return json.get<Table>();
}

std::string formatTime(double nanoseconds) {
    struct Unit {
        double nanoseconds;
        const char* name;
    };
    constexpr Unit kUnits[] = {{1e9, " s"}, {1e6, " ms"}, {1e3, " us"}};
    for (const Unit& unit : kUnits) {
        if (nanoseconds >= unit.nanoseconds) {
            const double value = nanoseconds / unit.nanoseconds;
            return format(value, decimalsFor(value, 2), unit.name);
        }
    }
    return format(nanoseconds, decimalsFor(nanoseconds, 2), " ns");
}

std::string formatRatio(double ratio) {
    return format(ratio, decimalsFor(ratio, 2), "");
}

int deliver(const Table& table, int argc, char** argv) {
    print(table, std::cout);
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--json") == 0) {
            std::ofstream file(argv[i + 1]);
            file << toJson(table).dump(2) << "\n";
            if (!file.flush()) {
                std::cerr << argv[0] << ": cannot write " << argv[i + 1] << "\n";
                return 1;
            }
        }
    }
    return std::any_of(table.rows.begin(), table.rows.end(),
                       [](const Row& row) { return row.verdict == Verdict::kFailed; });
}

}  // namespace bench
