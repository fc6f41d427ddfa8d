// SPDX-License-Identifier: Apache-2.0
#include "support/Affinity.h"

namespace bench {

namespace {

void pinTo(int cpu) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(cpu, &one);
    sched_setaffinity(0, sizeof(one), &one);
}

}  // namespace

void pinToLastCore() {
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof(allowed), &allowed);
    int last = CPU_SETSIZE - 1;
    while (last > 0 && !CPU_ISSET(last, &allowed)) {
        --last;
    }
    pinTo(last);
}

Affinity::Affinity(Place place) : mPlace(place) {
    sched_getaffinity(0, sizeof(mBefore), &mBefore);
    pinToLastCore();
}

Affinity::~Affinity() {
    sched_setaffinity(0, sizeof(mBefore), &mBefore);
}

void Affinity::callerGoes() {
    int first = 0;
    while (first < CPU_SETSIZE - 1 && !CPU_ISSET(first, &mBefore)) {
        ++first;
    }
    if (mPlace == Place::kTwoCores) {
        pinTo(first);
    }
}

}  // namespace bench
