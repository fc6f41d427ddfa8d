// SPDX-License-Identifier: Apache-2.0
#include <cutils/properties.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

#include "Mutex.h"

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
    if (path == nullptr) {
        return false;
    }
    std::ifstream file(path);
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
    const std::string text = key != nullptr ? find(key) : std::string();
    for (const char* yes : {"1", "y", "yes", "on", "true"}) {
        if (text == yes)
            return 1;
    }
    for (const char* no : {"0", "n", "no", "off", "false"}) {
        if (text == no)
            return 0;
    }
    return default_value;
}

int property_set(const char* key, const char* value) {
    const std::string text = value != nullptr ? value : "";
    if (key == nullptr || *key == '\0' || text.size() >= PROPERTY_VALUE_MAX) {
        return -1;
    }
    const android::Mutex::Autolock lock(properties().mutex);
    properties().values[key] = text;
    return 0;
}
