// SPDX-License-Identifier: Apache-2.0
// The log switches, and what the log statements do behind them.
#define LOG_TAG "TEST"

#include "common/Log.h"

#include <cutils/properties.h>
#include <gtest/gtest.h>

#include "support/LogCapture.h"

using DisplayEngineCleanCommon::initLogSwitch;
using Texts = std::vector<std::string>;

namespace {

TEST(LogTest, SwitchesFollowTheProperties) {
    ASSERT_TRUE(g_delogdEnable && g_delogiEnable && !g_delogvEnable) << "as loaded";
    const char* const names[] = {"ro.debuggable", "persist.sys.tivora.debug.on",
                                 "persist.displayengine.log"};
    const struct {
        const char* values[3];
        std::string text;
        bool isDebugOn;
        bool isVerboseOn;
    } cases[] = {
        {{"0", "off", "false"}, "isProductDebuggable=0, isDebugLogOn=0", false, false},
        {{"1", "off", "false"}, "isProductDebuggable=1, isDebugLogOn=0", true, false},
        {{"0", "yes", "false"}, "isProductDebuggable=1, isDebugLogOn=0", true, false},
        {{"0", "off", "on"}, "isProductDebuggable=0, isDebugLogOn=1", true, true},
        {{"1", "yes", "on"}, "isProductDebuggable=1, isDebugLogOn=1", true, true},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.text);
        for (size_t i = 0; i < std::size(names); ++i) {
            property_set(names[i], expected.values[i]);
        }
        // The line is gated by the switch as it was, so a second call after all went off is silent.
        LogCapture log;
        g_delogdEnable = true;
        initLogSwitch();
        const std::string line = "4 DE N DECC initLogSwitch:#: " + expected.text;
        EXPECT_EQ(log.take(), Texts{line});
        EXPECT_EQ(g_delogdEnable, expected.isDebugOn);
        EXPECT_EQ(g_delogiEnable, expected.isDebugOn);
        EXPECT_EQ(g_delogvEnable, expected.isVerboseOn);
        initLogSwitch();
        EXPECT_EQ(log.take(), expected.isDebugOn ? Texts{line} : Texts{});
    }
}

TEST(LogTest, MessagesNameTheirSourceLine) {
    static std::string text;
    __android_log_set_logger([](const auto* message) { text = message->message; });
    DE_LOGW("here");
    EXPECT_EQ(text, "TestBody:" + std::to_string(__LINE__ - 1) + ": here");
    __android_log_set_logger(nullptr);
}

TEST(LogTest, SuppressedMessagesComputeNothing) {
    int computed = 0;
    for (const bool isOn : {false, true}) {
        LogCapture log;
        g_delogdEnable = g_delogiEnable = g_delogvEnable = isOn;
        DE_LOGD("%d", ++computed);
        DE_LOGI("%d", ++computed);
        DE_LOGV("%d", ++computed);
        DE_LOGW("warning");
        DE_LOGE("error %d%d%d%d%d%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13);
        EXPECT_EQ(computed, isOn ? 3 : 0);
        EXPECT_EQ(log.lines().size(), isOn ? 5U : 2U);
        EXPECT_EQ(log.last(""), "6 TEST TestBody:#: error 12345678910111213");
    }
}

}  // namespace
