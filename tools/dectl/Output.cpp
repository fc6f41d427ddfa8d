// SPDX-License-Identifier: Apache-2.0
#include "Output.h"

#include <iostream>
#include <string>

namespace control {
namespace {

/** Bytes that are not UTF-8 come out as U+FFFD, for JSON has no other text. */
std::string documentOf(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string plain(const Json& value) {
    const std::string document = documentOf(value);
    return value.is_string() ? document.substr(1, document.size() - 2) : document;
}

std::string words(const Json& object) {
    std::string line;
    for (const auto& [name, value] : object.items()) {
        line += line.empty() ? "" : " ";
        line += value.is_object() ? words(value) : name + "=" + plain(value);
    }
    return line;
}

}  // namespace

void Output::printValues(const Json& values) const {
    if (mIsJson) {
        std::cout << documentOf(values) << '\n';
        return;
    }
    for (const auto& [name, value] : values.items()) {
        std::cout << name << ": " << plain(value) << '\n';
    }
}

void Output::printEvent(const Json& event) const {
    // Flushed for each event: a script reads along.
    std::cout << (mIsJson ? documentOf(event) : words(event)) << std::endl;
}

}  // namespace control
