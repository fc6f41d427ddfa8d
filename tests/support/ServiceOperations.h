// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "aidl/IDisplayEngineService.h"

namespace protocol {

/** The results of one operation, set beforehand to values that no service answers. */
struct Results {
    int32_t result = -5;
    bool accepted = false;
    std::vector<int32_t> values = {1, 2, 3};
    std::vector<uint8_t> bytes = {4, 5, 6, 7, 8};
    com::tivora::displayengine::DeGraphicBuffer input;
    com::tivora::displayengine::DeGraphicBuffer output;

    /** Result, acceptance, values, bytes and output: "-5 no 1,2,3 4,5,6,7,8 none" at the start. */
    std::string text() const;
};

constexpr char kUntouched[] = "-5 no 1,2,3 4,5,6,7,8 none";

/** The operations as a RecordingService sees them, and what its answers do to the results. */
struct Operation {
    uint32_t code;
    const char* call;
    const char* results;
};
constexpr uint32_t kOperationCount = 12;
extern const Operation kOperations[kOperationCount];

/** Calls the operation of `code` with arguments that differ from each other. */
android::binder::Status callOperation(
    com::tivora::displayengine::IDisplayEngineService& service, uint32_t code, Results* out,
    const android::sp<com::tivora::displayengine::IDisplayEngineCallback>& callback = nullptr);

}  // namespace protocol
