// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <cutils/properties.h>

#include <algorithm>
#include <atomic>
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

struct Properties {
    android::Mutex mutex;
    std::map<std::string, std::string> values GUARDED_BY(mutex);
};

Properties& properties() {
    // Never destroyed: the log switches may be read until the very end of the process.
    static Properties& instance = *new Properties;
    return instance;
}

std::string trimmed(const std::string& text) {
    constexpr char kSpace[] = " \t\r";
    const size_t begin = text.find_first_not_of(kSpace);
    return begin == std::string::npos
               ? std::string()
               : text.substr(begin, text.find_last_not_of(kSpace) - begin + 1);
}

/** The last line of the shared file that names `key`; false when there is none. */
bool findInFile(const std::string& key, std::string* value) {
    const char* path = std::getenv("DISPLAYENGINE_PROPERTIES");
    if (path == nullptr || *path == '\0') {
        return false;
    }
    std::ifstream file(path);
    static std::atomic<bool> isReported{false};
    if (!file && !isReported.exchange(true)) {
        __android_log_print(ANDROID_LOG_WARN, "properties",
                            "cannot read %s, which DISPLAYENGINE_PROPERTIES names: %s", path,
                            std::strerror(errno));
    }
    bool found = false;
    for (std::string line; std::getline(file, line);) {
        const size_t equals = line.find('=');
        if (equals != std::string::npos && trimmed(line.substr(0, equals)) == key) {
            *value = trimmed(line.substr(equals + 1));
            found = true;
        }
    }
    return found;
}

std::string find(const std::string& key) {
    {
        const android::Mutex::Autolock lock(properties().mutex);
        const auto entry = properties().values.find(key);
        if (entry != properties().values.end()) {
            return entry->second;
        }
    }
    std::string value;
    return findInFile(key, &value) && value.size() < PROPERTY_VALUE_MAX ? value : std::string();
}

}  // namespace

int8_t property_get_bool(const char* key, int8_t default_value) {
    std::string text;  // stays empty without memory
    android::orNoMemory([&text, key] {
        text = find(key);
        return android::OK;
    });
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
        const android::Mutex::Autolock lock(properties().mutex);
        properties().values[key] = value;
        return android::OK;
    });
    return status == android::OK ? 0 : -1;
}
