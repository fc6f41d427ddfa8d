// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <unordered_map>

#include "aisr/AisrAlgorithm.h"
#include "common/AisrProcess.h"
#include "common/FrameText.h"
#include "common/NoThrow.h"

// None of these operations can report a failure: when memory is short, the text is empty.

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
    return noThrow(std::string(), [&] {
        const auto found = names.find(value);
        if (found == names.end()) {
            return unknown + std::to_string(value);
        }
        return std::string(found->second) + "(" + std::to_string(value) + ")";
    });
}

}  // namespace

std::string AisrAlgorithm::errToString(int status) const {
    return nameOf(kStatusNames, status, "Unknown error code: ");
}

std::string AisrAlgorithm::getTagName(int tag) const {
    return nameOf(kTagNames, tag, "Unknown tag code: ");
}

std::string AisrAlgorithm::toString(unsigned long value) {
    return noThrow(std::string(), [&] { return Aisr::toString(value); });
}

std::string AisrAlgorithm::rectToString(const Aisr::BufferInfo& info) {
    return noThrow(std::string(), [&] { return Aisr::rectToString(info); });
}

std::string AisrAlgorithm::toString(const Aisr::BufferInfo& info) {
    return noThrow(std::string(), [&] { return Aisr::toString(info); });
}

std::string AisrAlgorithm::toStringSafe(const Aisr::BufferInfo& info) {
    return noThrow(std::string(), [&] { return Aisr::toStringSafe(info); });
}
