// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "aidl/IDisplayEngineService.h"
#include "aidl/TransactionCodes.h"

namespace protocol {

using com::tivora::displayengine::DeGraphicBuffer;
using com::tivora::displayengine::IDisplayEngineCallback;
using com::tivora::displayengine::IDisplayEngineService;
using com::tivora::displayengine::kServiceCodeCount;

/** The results of one operation, set beforehand to values that no service answers. */
struct Results {
    int32_t result = -5;
    bool accepted = false;
    std::vector<int32_t> values = {1, 2, 3};
    std::vector<uint8_t> bytes = {4, 5, 6, 7, 8};
    DeGraphicBuffer input;
    DeGraphicBuffer output;

    /** Result, acceptance, values, bytes and output; kUntouched at the start. */
    std::string text() const;
};

constexpr char kUntouched[] = "-5 no [ 1 2 3 ] [ 4 5 6 7 8 ] 0";

/** An operation of the service; its arguments differ from each other. */
struct Operation {
    std::string call;    /**< as a RecordingService sees it */
    std::string results; /**< what the answer of that service makes of the Results */
    std::string request; /**< the bytes behind the token; a callback is null here */
    std::string reply;   /**< that service's; empty where it carries descriptors */
    android::binder::Status (*run)(IDisplayEngineService&, Results*,
                                   const android::sp<IDisplayEngineCallback>&);
};

/** All of them, in the order of their codes, which is that of the virtual operations as well. */
extern const Operation kOperations[kServiceCodeCount];

}  // namespace protocol
