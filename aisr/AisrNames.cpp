// SPDX-License-Identifier: Apache-2.0
#include <cinttypes>
#include <cstdio>
#include <string>
#include <unordered_map>

#include "aisr/AisrAlgorithm.h"
#include "aisr/AisrBuffer.h"

namespace {

using NameTable = std::unordered_map<int, const char*>;

// Never destroyed: a process that is exiting may still bring its engine up.
const NameTable& kStatusNames = *new NameTable{
    {AISR_SUCCESS, "AISR_SUCCESS"},
    {AISR_ERR_FATAL, "AISR_ERR_FATAL"},
    {AISR_ERR_BUF_COPY, "AISR_ERR_BUF_COPY"},
    {AISR_ERR_TIMEOUT, "AISR_ERR_TIMEOUT"},
};

// The log level is not among the named tags and prints as an unknown one.
const NameTable& kTagNames = *new NameTable{
    {AISR_TAG_NEW_MEM, "AISR_TAG_NEW_MEM"}, {AISR_TAG_DEL_MEM, "AISR_TAG_DEL_MEM"},
    {AISR_TAG_SET_BUF, "AISR_TAG_SET_BUF"}, {AISR_TAG_SET_TIMEOUT, "AISR_TAG_SET_TIMEOUT"},
    {AISR_TAG_NUM, "AISR_TAG_NUM"},
};

std::string nameOf(const NameTable& names, int value, const char* unknown) {
    const auto found = names.find(value);
    if (found == names.end()) {
        return unknown + std::to_string(value);
    }
    return std::string(found->second) + "(" + std::to_string(value) + ")";
}

// "%p" and streams disagree on null; this form does not.
std::string addressToString(const void* address) {
    char text[2 + 16 + 1];
    std::snprintf(text, sizeof(text), "0x%" PRIxPTR, reinterpret_cast<uintptr_t>(address));
    return text;
}

std::string identity(const Aisr::BufferInfo& info) {
    return "data:{ id=" + AisrAlgorithm::toString(info.id) + " idx=" + std::to_string(info.idx);
}

}  // namespace

std::string AisrAlgorithm::errToString(int status) const {
    return nameOf(kStatusNames, status, "Unknown error code: ");
}

std::string AisrAlgorithm::getTagName(int tag) const {
    return nameOf(kTagNames, tag, "Unknown tag code: ");
}

std::string AisrAlgorithm::toString(unsigned long value) {
    char text[16 + 1];
    std::snprintf(text, sizeof(text), "%lx", value);
    return text;
}

std::string AisrAlgorithm::rectToString(const Aisr::BufferInfo& info) {
    return std::to_string(info.width) + "(" + std::to_string(info.stride) + ")x" +
           std::to_string(info.height);
}

std::string AisrAlgorithm::toString(const Aisr::BufferInfo& info) {
    return identity(info) + " y=" + addressToString(info.y) + " uv=" + addressToString(info.uv) +
           " " + rectToString(info) + " }";
}

std::string AisrAlgorithm::toStringSafe(const Aisr::BufferInfo& info) {
    return identity(info) + " " + rectToString(info) + " }";
}
