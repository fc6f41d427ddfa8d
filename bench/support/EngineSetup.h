// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "aisr/AisrEngine.h"
#include "common/BufferInfo.h"

/** Engines to measure, with a service inside the program and a processing library that does
 * nothing. */
namespace bench {

/**
 * The service's 13 values: 513x513 to 1280x720 at up to 30 frames per second, a monitor that never
 * refuses (a measurement offers frames as fast as it can), and limits of a second, which no pause
 * of a busy machine reaches. Change what a measurement needs otherwise.
 */
struct EngineConfig {
    int32_t monitorMaxFps = 38;
    int32_t monitorTolerance = INT32_MAX;
    int32_t monitorRestore = 3;
    int32_t abortMs = 1000;
    int32_t overloadMs = 1000;
    int32_t overloadCount = 5;
    int32_t overloadPeriodMs = 10000;
};

/**
 * Registers the service, in a runtime directory of the process's own that is removed at exit,
 * switches the suppressible log messages off, and counts the others instead of printing them. Once,
 * at the start of the program; it ends the program if that fails.
 */
void setUpService();

/** The configuration that engines initialised from now on are given. */
void configure(const EngineConfig& config);

/** An engine whose worker runs. It inherits the affinity of the calling thread. */
std::unique_ptr<AisrEngine> startEngine(const EngineConfig& config);

/** Warnings and errors logged so far: a frame that was refused, failed or expired gives one. */
uint64_t warnings();

/** A frame that the configured engine accepts. Its planes are there for their addresses only. */
Aisr::BufferInfo frame(uint64_t id);

}  // namespace bench
