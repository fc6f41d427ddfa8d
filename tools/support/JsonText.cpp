// SPDX-License-Identifier: Apache-2.0
#include "tools/support/JsonText.h"

#include <utils/String8.h>

namespace {

std::string plain(const Json& value) {
    const std::string document = documentOf(value);
    return value.is_string() ? document.substr(1, document.size() - 2) : document;
}

}  // namespace

std::string documentOf(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string wordsOf(const Json& object) {
    std::string line;
    for (const auto& [name, value] : object.items()) {
        line += line.empty() ? "" : " ";
        line += value.is_object() ? wordsOf(value) : name + "=" + plain(value);
    }
    return line;
}

std::string linesOf(const Json& object, const std::string& indent) {
    std::string lines;
    for (const auto& [name, value] : object.items()) {
        lines += indent;
        if (object.is_array()) {
            lines += (value.is_object() ? wordsOf(value) : plain(value)) + '\n';
        } else if (value.is_structured()) {
            lines += name + ":\n" + linesOf(value, indent + "  ");
        } else {
            lines += name + ": " + plain(value) + '\n';
        }
    }
    return lines;
}

Json entriesOf(const android::os::PersistableBundle& bundle) {
    Json entries = Json::object();
    for (const char* key : {"Key", "Feature", "Type", "Enable", "forceEnable", "FPS", "Value"}) {
        const android::String16 name(key);
        android::String16 text;
        int32_t number = 0;
        bool flag = false;
        if (bundle.getString(name, &text)) {
            entries[key] = android::String8(text).string();
        } else if (bundle.getInt(name, &number)) {
            entries[key] = number;
        } else if (bundle.getBoolean(name, &flag)) {
            entries[key] = flag;
        }
    }
    return entries;
}
