// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <utils/StrongPointer.h>

#include <cstdint>

#include "aidl/IDisplayEngineService.h"
#include "common/Export.h"

/**
 * @file
 * The exported functions: the way to the service, and the CWB switch.
 */

/**
 * Looks the display engine service up, and waits some seconds for one that is not yet up. Null when
 * there is none. Each call is a lookup of its own and hands out a new reference. Any thread may
 * call.
 */
DE_EXPORT android::sp<com::tivora::displayengine::IDisplayEngineService> getDisplayEngineService();

/** Like getDisplayEngineService(), but returns at once. */
DE_EXPORT android::sp<com::tivora::displayengine::IDisplayEngineService>
checkDisplayEngineService();

/**
 * Switches the service's CWB force-enable: `enable` is 0 or 1. Returns 0 on success and -22 on any
 * failure. Blocks for a lookup and a call of the service. Any thread may call.
 */
extern "C" DE_EXPORT int32_t setCwbForceEnable(int32_t enable);
