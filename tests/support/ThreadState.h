// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

/** The calling thread, for waitUntilAsleep(). */
pid_t ownThread();

/**
 * Blocks until a thread of this process, or the main thread of another, sleeps, be it for a lock, a
 * condition or a time.
 */
void waitUntilAsleep(pid_t thread);
