// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N DECC"

#include <bounded/stdio.h>
#include <locale.h>
#include <stdlib.h>
#include <utils/String16.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <string_view>
#include <utility>

#include "common/DisplayEngineCleanCommon.h"
#include "common/Log.h"
#include "common/NoThrow.h"

// Nothing here depends on the process's locale. Bytes are compared unsigned, since plain char is
// signed on some machines.

namespace {

constexpr unsigned char kDelete = 0x7F;

bool isLeadingBlank(unsigned char byte) {
    return (byte >= '\t' && byte <= '\r') || byte == ' ';
}

bool isTrailingBlank(unsigned char byte) {
    return byte <= ' ' || byte == kDelete;
}

/** Digits with at most one full stop, and at most a hyphen-minus in front. */
bool isPlainNumber(std::string_view str) {
    const std::string_view unsignedPart = str.substr(str.compare(0, 1, "-") == 0 ? 1 : 0);
    return unsignedPart.find_first_not_of("0123456789.") == std::string_view::npos &&
           std::count(unsignedPart.begin(), unsignedPart.end(), '.') <= 1;
}

/** False when `str` holds no digit or lies outside the float range. */
bool parseFloat(const std::string& str, float* value) {
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    if (plain == nullptr) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    *value = strtof_l(str.c_str(), &end, plain);
    return end != str.c_str() && errno != ERANGE;
}

}  // namespace

void DisplayEngineCleanCommon::split(const std::string& str, const std::string& sep,
                                     std::vector<std::string>& out) {
    // `str` may be one of the strings in `out`, so the fields are collected first.
    noThrow(false, [&] {
        std::vector<std::string> fields;
        size_t start = 0;
        size_t found = sep.empty() ? std::string::npos : str.find(sep);
        while (found != std::string::npos) {
            fields.push_back(str.substr(start, found - start));
            start = found + sep.size();
            found = str.find(sep, start);
        }
        fields.push_back(str.substr(start));
        out.reserve(out.size() + fields.size());
        std::move(fields.begin(), fields.end(), std::back_inserter(out));
        return true;
    });
}

int DisplayEngineCleanCommon::stringToInt(const std::string& str) {
    int value = 0;
    return sscanf_s(str.c_str(), "%d", &value) > 0 ? value : 0;
}

float DisplayEngineCleanCommon::stringToFloat(const std::string& str) {
    float value = 0.0F;
    if (!isPlainNumber(str) || !parseFloat(str, &value)) {
        DE_LOGW("Invalid input:%s", str.c_str());
        return 0.0F;
    }
    return value;
}

void DisplayEngineCleanCommon::trimLeft(std::string& str) {
    str.erase(str.begin(), std::find_if_not(str.begin(), str.end(), isLeadingBlank));
}

void DisplayEngineCleanCommon::trimRight(std::string& str) {
    str.erase(std::find_if_not(str.rbegin(), str.rend(), isTrailingBlank).base(), str.end());
}

void DisplayEngineCleanCommon::trim(std::string& str) {
    trimLeft(str);
    trimRight(str);
}

std::string DisplayEngineCleanCommon::string16ToString(const android::String16& s16) {
    return noThrow(std::string(), [&] {
        std::string narrow;
        for (size_t i = 0; i < s16.size(); ++i) {
            narrow.push_back(static_cast<char>(s16.string()[i] & 0xFF));
        }
        return narrow;
    });
}
