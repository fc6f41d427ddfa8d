// SPDX-License-Identifier: Apache-2.0
// The dynamic symbols of a shared library's file.
#pragma once

#include <string>
#include <vector>

namespace checker {

struct DynamicSymbol {
    std::string name;
    bool isFunction = false;
    bool isUnique = false; /**< Keeps the library in memory for ever. */
};

/** What the library exports; empty when the file cannot be read as one. */
std::vector<DynamicSymbol> exportedSymbols(const std::string& path);

}  // namespace checker
