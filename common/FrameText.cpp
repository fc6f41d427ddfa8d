// SPDX-License-Identifier: Apache-2.0
#include "common/FrameText.h"

#include <cinttypes>
#include <cstdio>

namespace {

// "%p" and streams disagree on null; this form does not.
std::string addressToString(const void* address) {
    char text[2 + 16 + 1];
    std::snprintf(text, sizeof(text), "0x%" PRIxPTR, reinterpret_cast<uintptr_t>(address));
    return text;
}

std::string identity(const Aisr::BufferInfo& info) {
    return "data:{ id=" + Aisr::toString(info.id) + " idx=" + std::to_string(info.idx);
}

}  // namespace

std::string Aisr::toString(uint64_t value) {
    char text[16 + 1];
    std::snprintf(text, sizeof(text), "%" PRIx64, value);
    return text;
}

std::string Aisr::rectToString(const BufferInfo& info) {
    return std::to_string(info.width) + "(" + std::to_string(info.stride) + ")x" +
           std::to_string(info.height);
}

std::string Aisr::toString(const BufferInfo& info) {
    return identity(info) + " y=" + addressToString(info.y) + " uv=" + addressToString(info.uv) +
           " " + rectToString(info) + " }";
}

std::string Aisr::toStringSafe(const BufferInfo& info) {
    return identity(info) + " " + rectToString(info) + " }";
}
