// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sched.h>

namespace bench {

/** Where the two sides of a measurement run. */
enum class Place { kOneCore, kTwoCores };

/**
 * Affinities for a measurement, until the end of the scope. Threads and processes started at first
 * are pinned to the last core that the process may use; afterwards callerGoes() takes the calling
 * thread to where the caller is to run.
 *
 * Left to itself the scheduler changes between the two places from one repetition to the next, and
 * nothing can be compared.
 */
class Affinity {
public:
    explicit Affinity(Place place);
    ~Affinity();
    Affinity(const Affinity&) = delete;
    Affinity& operator=(const Affinity&) = delete;

    void callerGoes();

private:
    const Place mPlace;
    cpu_set_t mBefore;
};

/** Pins the calling thread to the last core that it may use. */
void pinToLastCore();

}  // namespace bench
