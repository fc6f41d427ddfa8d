// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <cutils/properties.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <map>
#include <string>

#include "Mutex.h"
#include "NoMemory.h"

namespace {

android::Mutex gMutex;

/** What has been set in this process. */
std::map<std::string, std::string>& values() REQUIRES(gMutex) {
    // Never destroyed: the log switches may be read until the very end of the process.
    static auto& instance = *new std::map<std::string, std::string>;
    return instance;
}

/** The value in the last line of the shared file that names `key`; empty when there is none. */
std::string findInFile(const std::string& key) {
    const char* path = std::getenv("DISPLAYENGINE_PROPERTIES");
    if (path == nullptr || *path == '\0') {
        return {};
    }
    std::ifstream file(path);
    static std::atomic<bool> isReported{false};
    if (!file && !isReported.exchange(true)) {
        __android_log_print(ANDROID_LOG_WARN, "properties",
                            "cannot read %s, which DISPLAYENGINE_PROPERTIES names: %s", path,
                            std::strerror(errno));
    }
    const auto isBlank = [](unsigned char byte) { return std::isspace(byte) != 0; };
    std::string value;
    for (std::string line; std::getline(file, line);) {
        // No key and no value of a switch has a blank inside.
        line.erase(std::remove_if(line.begin(), line.end(), isBlank), line.end());
        if (line.compare(0, key.size() + 1, key + '=') == 0) {
            value = line.substr(key.size() + 1);
        }
    }
    return value;
}

std::string find(const std::string& key) {
    const android::Mutex::Autolock lock(gMutex);
    const auto entry = values().find(key);
    return entry != values().end() ? entry->second : findInFile(key);
}

}  // namespace

int8_t property_get_bool(const char* key, int8_t default_value) {
    std::string text;  // stays empty without memory
    android::orNoMemory([&text, key] { text = find(key); });
    const auto isOneOf = [&text](std::initializer_list<const char*> words) {
        return std::find(words.begin(), words.end(), text) != words.end();
    };
    if (isOneOf({"1", "y", "yes", "on", "true"})) {
        return 1;
    }
    return isOneOf({"0", "n", "no", "off", "false"}) ? int8_t{0} : default_value;
}

int property_set(const char* key, const char* value) {
    if (*key == '\0' || std::strlen(value) >= PROPERTY_VALUE_MAX) {
        return -1;
    }
    const android::status_t status = android::orNoMemory([key, value] {
        const android::Mutex::Autolock lock(gMutex);
        values()[key] = value;
    });
    return status == android::OK ? 0 : -1;
}
