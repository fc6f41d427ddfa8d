// SPDX-License-Identifier: Apache-2.0
// The string utilities where the fuzzer's model of them does not reach: the process's locale, and
// every byte there is.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <clocale>
#include <string>

#include "common/DisplayEngineCleanCommon.h"
#include "support/LogCapture.h"

using namespace DisplayEngineCleanCommon;

namespace {

/** Makes a locale whose decimal point is a comma, and chooses it for the process. */
void chooseCommaLocale() {
    const std::string folder = getenv("DISPLAYENGINE_RUNTIME_DIR");
    setenv("LOCPATH", folder.c_str(), 1);
    ASSERT_EQ(std::system(("localedef -i de_DE -f UTF-8 '" + folder + "/de_DE'").c_str()), 0);
    ASSERT_NE(std::setlocale(LC_ALL, "de_DE"), nullptr);
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");
}

TEST(StringUtils, StringToFloatKnowsNoLocale) {
    ASSERT_NO_FATAL_FAILURE(chooseCommaLocale());
    LogCapture log;
    EXPECT_EQ(stringToFloat("-1.5"), -1.5F);
    EXPECT_EQ(stringToFloat("1,5"), 0.0F);
    EXPECT_EQ(log.take(),
              std::vector<std::string>{"5 DE N DECC stringToFloat:#: Invalid input:1,5"});
}

TEST(StringUtils, TrimsTheBytesThatAreBlankAtEachEnd) {
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

}  // namespace
