// The string utilities, by rule: each table row is one rule or one edge of it.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <utils/String16.h>

#include <clocale>
#include <filesystem>

#include "common/DisplayEngineCleanCommon.h"
#include "support/LogCapture.h"

using namespace DisplayEngineCleanCommon;
using Texts = std::vector<std::string>;
using namespace std::string_literals;

namespace {

TEST(StringUtils, Split) {
    const struct {
        std::string text, separator;
        Texts fields;
    } cases[] = {
        {"a,b", ",", {"a", "b"}}, {"a,,b", ",", {"a", "", "b"}},  {",a,", ",", {"", "a", ""}},
        {"", ",", {""}},          {"abc", ",", {"abc"}},          {"a::b:c", "::", {"a", "b:c"}},
        {":::", "::", {"", ":"}}, {"a", "long separator", {"a"}}, {"a\0b"s, "\0"s, {"a", "b"}},
        {"ab", "", {"ab"}},
    };
    for (const auto& expected : cases) {
        Texts fields = {"kept", ""};
        split(expected.text, expected.separator, fields);
        Texts all = {"kept", ""};
        all.insert(all.end(), expected.fields.begin(), expected.fields.end());
        EXPECT_EQ(fields, all) << expected.text;
    }
}

TEST(StringUtils, StringToInt) {
    const std::pair<std::string, int> cases[] = {
        {"42", 42}, {" \t-7x", -7}, {"+3", 3},
        {"x7", 0},  {"", 0},        {"-", 0},
        {"007", 7}, {"1.9", 1},     {"-2147483648", INT32_MIN}};
    for (const auto& [text, value] : cases) {
        EXPECT_EQ(stringToInt(text), value) << text;
    }
}

/** Makes a locale whose decimal point is a comma, and chooses it for the process. */
void chooseCommaLocale() {
    const std::filesystem::path folder = std::filesystem::path(getenv("DISPLAYENGINE_RUNTIME_DIR"));
    setenv("LOCPATH", folder.c_str(), 1);
    const std::string make = "localedef -i de_DE -f UTF-8 '" + (folder / "de_DE").string() + "'";
    ASSERT_EQ(std::system(make.c_str()), 0);
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE"), nullptr);
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");
}

TEST(StringUtils, StringToFloatInEveryLocale) {
    const std::pair<std::string, float> numbers[] = {
        {"1.5", 1.5F}, {"-0.25", -0.25F}, {".5", 0.5F},  {"5.", 5.0F},
        {"007", 7.0F}, {"-.5", -0.5F},    {"-0", -0.0F}, {std::string(38, '9'), 1e38F},
        {"0", 0.0F},
    };
    Texts rejected = {std::string(39, '9'), "0." + std::string(60, '0') + "1", "1\0"s};
    split("1e5;+1; 1;1 ;1-2;--1;-1-;1.2.3;1,5;nan;inf;0x1;;-;.;-.", ";", rejected);
    const auto checkAll = [&] {
        LogCapture log;
        for (const auto& [text, value] : numbers) {
            EXPECT_EQ(stringToFloat(text), value) << text;
        }
        EXPECT_TRUE(log.take().empty());
        for (const std::string& text : rejected) {
            EXPECT_EQ(stringToFloat(text), 0.0F) << text;
            EXPECT_EQ(log.take(),
                      Texts{"5 DE N DECC stringToFloat:#: Invalid input:"s + text.c_str()});
        }
    };
    checkAll();
    ASSERT_NO_FATAL_FAILURE(chooseCommaLocale());
    checkAll();
}

TEST(StringUtils, Trim) {
    std::string leading;
    std::string trailing;
    for (int byte = 0; byte < 256; ++byte) {
        const std::string blank(1, static_cast<char>(byte));
        std::string text = blank + "a" + blank;
        trimLeft(text);
        leading += text.size() == 2 ? "1" : "0";
        text = blank + "a" + blank;
        trimRight(text);
        trailing += text.size() == 2 ? "1" : "0";
    }
    EXPECT_EQ(leading,
              std::string(9, '0') + "11111" + std::string(18, '0') + "1" + std::string(223, '0'));
    EXPECT_EQ(trailing, std::string(33, '1') + std::string(94, '0') + "1" + std::string(128, '0'));
    const std::pair<std::string, std::string> cases[] = {
        {" \t a b \x7f\x01\0"s, "a b"}, {"\0 a"s, "\0 a"s}, {" \r\n", ""}, {"", ""}};
    for (const auto& [text, result] : cases) {
        std::string trimmed = text;
        trim(trimmed);
        EXPECT_EQ(trimmed, result);
    }
}

TEST(StringUtils, String16ToString) {
    const std::pair<std::u16string, std::string> cases[] = {{u"PANEL", "PANEL"},
                                                            {u"\u00e9\u4e2d", "\xe9\x2d"},
                                                            {u"\U0001F600", "\x3d\x00"s},
                                                            {u"", ""}};
    for (const auto& [units, bytes] : cases) {
        EXPECT_EQ(string16ToString(android::String16(units.data(), units.size())), bytes);
    }
}

}  // namespace
