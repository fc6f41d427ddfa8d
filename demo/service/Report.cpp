// SPDX-License-Identifier: Apache-2.0
#include "Report.h"

#include <cstdint>
#include <iostream>

#include "common/DeMutex.h"

namespace sample {

void report(const std::string& line) {
    static DeMutex mutex;
    const DeMutexLock lock(mutex);
    std::cout << line << std::endl;
}

std::string printable(const std::string& text) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<uint8_t>(c);
        if (byte >= 0x20 && byte < 0x7F && c != '\\') {
            result += c;
        } else {
            result += {'\\', 'x', kHex[byte >> 4], kHex[byte & 15]};
        }
    }
    return result;
}

std::string textOf(const Json& object) {
    std::string text;
    for (const auto& [name, value] : object.items()) {
        text += (text.empty() ? "" : " ") + name + '=';
        if (value.is_object()) {
            text += '{' + textOf(value) + '}';
        } else if (value.is_string()) {
            text += '"' + printable(value.get<std::string>()) + '"';
        } else {
            text += documentOf(value);
        }
    }
    return text;
}

}  // namespace sample
