#include <algorithm>

#include "common/DisplayEngineCleanCommon.h"

namespace {

constexpr unsigned char kDelete = 0x7F;

// The two sets differ, and neither depends on the locale. The bytes are compared unsigned, since
// plain char is signed on some machines: those from 0x80 up are never removed.

bool isLeadingBlank(unsigned char byte) {
    return (byte >= '\t' && byte <= '\r') || byte == ' ';
}

bool isTrailingBlank(unsigned char byte) {
    return byte <= ' ' || byte == kDelete;
}

}  // namespace

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
