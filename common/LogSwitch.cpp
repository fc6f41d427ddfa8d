// SPDX-License-Identifier: Apache-2.0
#define LOG_TAG "DE N DECC"

#include <cutils/properties.h>

#include "common/DisplayEngineCleanCommon.h"
#include "common/Log.h"

std::atomic<bool> g_delogdEnable{true};
std::atomic<bool> g_delogiEnable{true};
std::atomic<bool> g_delogvEnable{false};

void DisplayEngineCleanCommon::initLogSwitch() {
    const bool isProductDebuggable = property_get_bool("ro.debuggable", false) ||
                                     property_get_bool("persist.sys.tivora.debug.on", false);
    const bool isDebugLogOn = property_get_bool("persist.displayengine.log", false);
    DE_LOGD("isProductDebuggable=%d, isDebugLogOn=%d", isProductDebuggable, isDebugLogOn);

    g_delogvEnable.store(isDebugLogOn, std::memory_order_relaxed);
    g_delogdEnable.store(isProductDebuggable || isDebugLogOn, std::memory_order_relaxed);
    g_delogiEnable.store(isProductDebuggable || isDebugLogOn, std::memory_order_relaxed);
}
