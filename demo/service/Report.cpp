// SPDX-License-Identifier: Apache-2.0
#include "Report.h"

#include <cstdint>
#include <iostream>

#include "common/DeMutex.h"
#include "tools/support/JsonText.h"

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

std::string describe(const android::os::PersistableBundle& bundle) {
    const Json values = entriesOf(bundle);
    std::string entries;
    for (const auto& [key, value] : values.items()) {
        entries += (entries.empty() ? "" : " ") + key + "=";
        entries +=
            value.is_string() ? '"' + printable(value.get<std::string>()) + '"' : documentOf(value);
    }
    return "{" + entries + "}";
}

}  // namespace sample
