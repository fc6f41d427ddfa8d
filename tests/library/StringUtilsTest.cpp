// SPDX-License-Identifier: Apache-2.0
// The string utilities: the process's locale, every byte there is, and the edges of the formats.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <utils/String16.h>

#include <clocale>
#include <string>
#include <vector>

#include "common/DisplayEngineCleanCommon.h"
#include "support/LogCapture.h"

using namespace DisplayEngineCleanCommon;
using Texts = std::vector<std::string>;

namespace {

/** Makes a locale whose decimal point is a comma, and chooses it for the process. */
void chooseCommaLocale() {
    const std::string folder = getenv("DISPLAYENGINE_RUNTIME_DIR");
    setenv("LOCPATH", folder.c_str(), 1);
    ASSERT_EQ(std::system(("localedef -i de_DE -f UTF-8 '" + folder + "/de_DE'").c_str()), 0);
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE"), nullptr);
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");
}

TEST(StringUtilsTest, ReadsANumberInAnyLocaleAndWarnsOfAnythingElse) {
    ASSERT_NO_FATAL_FAILURE(chooseCommaLocale());
    const struct {
        const char* text;
        float value;
        bool isNumber;
    } cases[] = {
        {"-1.5", -1.5F, true}, {".5", 0.5F, true},     {"2.", 2.0F, true},   {"1,5", 0.0F, false},
        {"1.2.", 0.0F, false}, {"1.2.3", 0.0F, false}, {"1e2", 0.0F, false}, {"+1", 0.0F, false},
        {"--1", 0.0F, false},  {".", 0.0F, false},     {"", 0.0F, false},    {" 1", 0.0F, false},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.text);
        LogCapture log;
        EXPECT_EQ(stringToFloat(expected.text), expected.value);
        const Texts warning = {std::string("5 DE N DECC stringToFloat:#: Invalid input:") +
                               expected.text};
        EXPECT_EQ(log.take(), expected.isNumber ? Texts{} : warning);
    }
    EXPECT_EQ(stringToFloat(std::string(39, '9')), 0.0F) << "outside the float range";
    EXPECT_EQ(stringToInt(" -12,5"), -12);
    EXPECT_EQ(stringToInt("x"), 0);
}

TEST(StringUtilsTest, SplitsAtWholeSeparatorsAndAppends) {
    const struct {
        const char* text;
        const char* separator;
        Texts fields;
    } cases[] = {
        {"a,b", ",", {"a", "b"}},         {",a,", ",", {"", "a", ""}},  {"", ",", {""}},
        {"a::b::", "::", {"a", "b", ""}}, {"a:::b", "::", {"a", ":b"}}, {"a,b", "", {"a,b"}},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.text);
        Texts fields = {"before"};
        split(expected.text, expected.separator, fields);
        EXPECT_EQ(fields.front(), "before");
        fields.erase(fields.begin());
        EXPECT_EQ(fields, expected.fields);
    }
}

TEST(StringUtilsTest, TrimsTheBytesThatAreBlankAtEachEnd) {
    std::string leading;
    std::string trailing;
    for (int byte = 0; byte < 256; ++byte) {
        const std::string blank(1, static_cast<char>(byte));
        std::string left = blank + "a" + blank;
        std::string right = left;
        trimLeft(left);
        trimRight(right);
        leading += left.size() == 2 ? "1" : "0";
        trailing += right.size() == 2 ? "1" : "0";
    }
    EXPECT_EQ(leading,
              std::string(9, '0') + "11111" + std::string(18, '0') + "1" + std::string(223, '0'));
    EXPECT_EQ(trailing, std::string(33, '1') + std::string(94, '0') + "1" + std::string(128, '0'));
}

TEST(StringUtilsTest, KeepsTheLowByteOfEachUnit) {
    const char16_t units[] = {u'a', 0x01ff, 0x4e80};
    EXPECT_EQ(string16ToString(android::String16(units, 3)), "a\xff\x80");
}

}  // namespace
