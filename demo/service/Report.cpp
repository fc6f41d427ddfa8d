// SPDX-License-Identifier: Apache-2.0
#include "Report.h"
#include "common/DeMutex.h"

#include <utils/String16.h>
#include <utils/String8.h>

#include <cstdint>
#include <iostream>

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
    std::string entries;
    const auto append = [&entries](const char* key, const std::string& value) {
        entries += (entries.empty() ? "" : " ") + std::string(key) + "=" + value;
    };
    for (const char* key : {"Key", "Feature", "Type", "Enable", "forceEnable", "FPS", "Value"}) {
        const android::String16 name(key);
        android::String16 text;
        int32_t number = 0;
        bool flag = false;
        if (bundle.getString(name, &text)) {
            append(key, '"' + printable(android::String8(text).string()) + '"');
        } else if (bundle.getInt(name, &number)) {
            append(key, std::to_string(number));
        } else if (bundle.getBoolean(name, &flag)) {
            append(key, flag ? "true" : "false");
        }
    }
    return "{" + entries + "}";
}

}  // namespace sample
