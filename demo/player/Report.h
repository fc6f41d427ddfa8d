// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "FrameLog.h"

namespace player {

/** Where the files of a run go, and what became of them. */
struct Report {
    /**
     * Creates the folder if need be, and removes the files of an earlier run. Throws
     * std::runtime_error if that is impossible.
     */
    explicit Report(const std::filesystem::path& folder);

    /** Draws the pictures, and accounts for the table, which is written already. */
    void write(const FrameLog::Result& result);

    const std::filesystem::path csv;
    const std::filesystem::path picture;
    const std::filesystem::path plot;
    std::map<std::string, std::string> files;  /**< Name and path of each that was written. */
    std::map<std::string, std::string> absent; /**< Name and reason of each that is not needed. */
    std::vector<std::string> failures;         /**< One line for each that cannot be written. */

private:
    void account(const std::filesystem::path& path, const std::string& error);
};

}  // namespace player
