// SPDX-License-Identifier: Apache-2.0
// A program of the demo or the tools that is run to its end.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

/** The folder of the demo's programs; the tools are beside it. */
inline const std::filesystem::path kDemo =
    std::filesystem::path(ChildProcess::ownPath()).parent_path() / "../demo";

/** The outcome of a run: exit status, standard output without the last line end, standard error. */
struct ProgramRun {
    ProgramRun(const std::string& program, const std::vector<std::string>& arguments,
               const std::vector<std::string>& environment = {}) {
        ChildProcess process(program, arguments, environment);
        while (const std::optional<std::string> line = process.readLine()) {
            output += (output.empty() ? "" : "\n") + *line;
        }
        code = process.wait();
        error = process.standardError();
    }

    int code;
    std::string output;
    std::string error;
};
