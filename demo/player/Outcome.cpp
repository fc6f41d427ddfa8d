// SPDX-License-Identifier: Apache-2.0
#include "Outcome.h"

namespace player {
namespace {

constexpr struct {
    const char* key;
    const char* text;
} kNames[kOutcomes] = {
    {"enhanced", "enhanced"},
    {"unchanged", "processed, unchanged"},
    {"failed", "failed in the processing library"},
    {"expired", "expired"},
    {"refused_overload", "refused, overload"},
    {"refused_unhealthy", "refused, unhealthy stream"},
    {"refused_busy", "refused, busy"},
    {"refused_not_ready", "refused, not ready"},
    {"refused_invalid", "refused, invalid frame"},
    {"refused_unknown", "refused, no reason given"},
    {"not_needed", "not needed"},
};

}  // namespace

const char* outcomeKey(Outcome outcome) {
    return kNames[static_cast<size_t>(outcome)].key;
}

const char* outcomeText(Outcome outcome) {
    return kNames[static_cast<size_t>(outcome)].text;
}

}  // namespace player
