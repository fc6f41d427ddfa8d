// SPDX-License-Identifier: Apache-2.0
// The string utilities against the rules they follow, spelled out byte by byte.
#include <utils/String16.h>

#include <charconv>
#include <cmath>
#include <cstring>

#include "common/DisplayEngineCleanCommon.h"
#include "support/Fuzzing.h"

using namespace DisplayEngineCleanCommon;
using namespace fuzz;
using Texts = std::vector<std::string>;

namespace {

void checkSplit(const std::string& text, const std::string& separator) {
    Texts fields = {"kept"}, expected = {"kept", ""};
    for (size_t at = 0; at < text.size();) {
        if (!separator.empty() && text.compare(at, separator.size(), separator) == 0) {
            expected.emplace_back();
            at += separator.size();
        } else {
            expected.back() += text[at++];
        }
    }
    split(text, separator, fields);
    REQUIRE(fields == expected);
}

void checkTrims(const std::string& text) {
    const std::string leading = "\t\n\v\f\r ";
    std::string left = text, right = text, both = text;
    size_t start = 0, end = text.size();
    while (start < text.size() && leading.find(text[start]) != std::string::npos) {
        ++start;
    }
    while (end > 0 && (static_cast<uint8_t>(text[end - 1]) <= 0x20 || text[end - 1] == 0x7F)) {
        --end;
    }
    trimLeft(left);
    trimRight(right);
    trim(both);
    REQUIRE(left == text.substr(start));
    REQUIRE(right == text.substr(0, end));
    REQUIRE(both == (start < end ? text.substr(start, end - start) : ""));
}

void checkInt(const std::string& text) {
    // The text up to its first NUL, without the blanks in front.
    const std::string number =
        text.c_str() + std::min(text.find_first_not_of("\t\n\v\f\r "), std::strlen(text.c_str()));
    const size_t sign = number[0] == '-' || number[0] == '+' ? 1 : 0;
    const size_t digits = std::min(number.find_first_not_of("0123456789", sign), number.size());
    if (digits - sign <= 18) {
        const int64_t value = digits > sign ? std::stoll(number.substr(0, digits)) : 0;
        REQUIRE(value != int32_t(value) || stringToInt(text) == value);  // else there is no rule
    }
}

void checkFloat(const std::string& text) {
    bool plain = true, digits = false;
    int stops = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        digits = digits || digit;
        stops += text[i] == '.' ? 1 : 0;
        plain = plain && (digit || text[i] == '.' || (text[i] == '-' && i == 0));
    }
    float expected = 0;
    const char* const end = text.data() + text.size();
    const bool inRange = std::from_chars(text.data(), end, expected).ec == std::errc();
    const bool accepted = plain && stops <= 1 && digits && inRange;
    if (accepted && std::fpclassify(expected) == FP_SUBNORMAL) {
        return;  // at the edge of the range either is right
    }
    takeLog();
    const float value = stringToFloat(text);
    const Texts log = takeLog();
    REQUIRE(value == (accepted ? expected : 0));
    REQUIRE(std::signbit(value) == (accepted && text[0] == '-'));
    REQUIRE(log.size() == (accepted ? 0 : 1));
    REQUIRE(accepted ||
            log[0].find("Invalid input:" + std::string(text.c_str())) != std::string::npos);
}

void checkNarrow(const std::string& text) {
    const std::u16string units(reinterpret_cast<const char16_t*>(text.data()), text.size() / 2);
    std::string expected;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        expected += text[i];
    }
    REQUIRE(string16ToString(android::String16(units.data(), units.size())) == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    const size_t separator = data.ConsumeIntegralInRange<size_t>(0, 15);
    const std::string sought = data.ConsumeBytesAsString(separator);
    const std::string text = data.ConsumeRemainingBytesAsString();
    checkSplit(text, sought);
    checkTrims(text);
    checkInt(text);
    checkFloat(text);
    checkNarrow(text);
    return 0;
}
