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

void setProperties(bool debuggable, bool debugOn, bool log) {
    property_set("ro.debuggable", debuggable ? "1" : "0");
    property_set("persist.sys.tivora.debug.on", debugOn ? "yes" : "off");
    property_set("persist.displayengine.log", log ? "on" : "false");
}

TEST(LogTest, SwitchesFollowTheProperties) {
    ASSERT_TRUE(g_delogdEnable && g_delogiEnable && !g_delogvEnable) << "as loaded";
    const struct {
        bool debuggable, debugOn, log;
        bool debug, verbose;
    } cases[] = {
        {false, false, false, false, false}, {true, false, false, true, false},
        {false, true, false, true, false},   {true, true, false, true, false},
        {false, false, true, true, true},    {true, true, true, true, true},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(testing::Message() << expected.debuggable << expected.debugOn << expected.log);
        setProperties(expected.debuggable, expected.debugOn, expected.log);
        // The line is gated by the switch as it was, so a second call after all went off is silent.
        LogCapture log;
        g_delogdEnable = true;
        initLogSwitch();
        const std::string line = std::string("4 DE N DECC initLogSwitch:#: isProductDebuggable=") +
                                 (expected.debuggable || expected.debugOn ? "1" : "0") +
                                 ", isDebugLogOn=" + (expected.log ? "1" : "0");
        EXPECT_EQ(log.take(), Texts{line});
        EXPECT_EQ(g_delogdEnable, expected.debug);
        EXPECT_EQ(g_delogiEnable, expected.debug);
        EXPECT_EQ(g_delogvEnable, expected.verbose);
        initLogSwitch();
        EXPECT_EQ(log.take(), expected.debug ? Texts{line} : Texts{});
    }
}

int gLoggedLine = 0;

TEST(LogTest, MessagesNameTheirSourceLine) {
    __android_log_set_logger([](const struct __android_log_message* message) {
        const std::string text = message->message;
        gLoggedLine = std::stoi(text.substr(text.find(':') + 1));
    });
    DE_LOGW("here");
    EXPECT_EQ(gLoggedLine, __LINE__ - 1);
    __android_log_set_logger(nullptr);
}

TEST(LogTest, SuppressedMessagesComputeNothing) {
    int computed = 0;
    const auto argument = [&computed] { return ++computed; };
    const auto logAll = [&] {
        DE_LOGD("debug %d", argument());
        DE_LOGI("info %d", argument());
        DE_LOGV("verbose %d", argument());
        DE_LOGW("warning");
        DE_LOGE("error %d%d%d%d%d%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13);
    };
    LogCapture log;
    g_delogdEnable = g_delogiEnable = g_delogvEnable = false;
    logAll();
    const Texts always = {"5 TEST operator():#: warning",
                          "6 TEST operator():#: error 12345678910111213"};
    EXPECT_EQ(log.take(), always);
    EXPECT_EQ(computed, 0);

    g_delogdEnable = g_delogiEnable = g_delogvEnable = true;
    logAll();
    EXPECT_EQ(log.take(), (Texts{"4 TEST operator():#: debug 1", "4 TEST operator():#: info 2",
                                 "4 TEST LOGV operator():#: verbose 3", always[0], always[1]}));
}

}  // namespace
