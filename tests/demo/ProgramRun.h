// SPDX-License-Identifier: Apache-2.0
// The programs of the demo and the tools as the tests run them.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/ChildProcess.h"

using Strings = std::vector<std::string>;

/** The folder of the demo's programs; the tools' folder is beside it. */
inline const std::filesystem::path kDemo =
    std::filesystem::path(ChildProcess::ownPath()).parent_path() / "../demo";
inline const std::string kService = kDemo / "service/displayengine-service";

/** The sample service, once it is ready. */
struct Service : ChildProcess {
    explicit Service(const std::vector<std::string>& arguments = {})
        : ChildProcess(kService, arguments) {
        EXPECT_TRUE(waitForLine("ready"));
    }
};

/** The words of a command line without quotes. */
inline Strings words(const std::string& text) {
    std::istringstream stream(text);
    return Strings{std::istream_iterator<std::string>(stream), {}};
}

/** A program that is run to its end. */
struct ProgramRun {
    ProgramRun(const std::string& program, const Strings& arguments,
               const Strings& environment = {}) {
        ChildProcess process(program, arguments, environment);
        while (const std::optional<std::string> line = process.readLine()) {
            output += (output.empty() ? "" : "\n") + *line;
        }
        code = process.wait();
        error = process.standardError();
    }

    /** Expects that it failed with `status` and said nothing but `reason`, in one line. */
    void expectFailure(int status, const std::string& reason) const {
        EXPECT_EQ(code, status) << reason;
        EXPECT_EQ(output, "");
        EXPECT_NE(error.find(reason), std::string::npos) << error;
        EXPECT_EQ(error.find('\n'), error.size() - 1) << error;
    }

    int code;           /**< The exit status. */
    std::string output; /**< Without the last line end. */
    std::string error;
};
