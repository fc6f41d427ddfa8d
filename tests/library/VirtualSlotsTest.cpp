// SPDX-License-Identifier: Apache-2.0
// The places of virtual operations in the tables of the classes, which code built apart from the
// library relies on.
#include <cxxabi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "support/ServiceOperations.h"

using Slots = std::vector<std::string>;

namespace {

/** An operation that is not among the library's exported ones, so that its slot has no name. */
const char* const kUnnamed = "";

/** The exported operation at `address`: "setScene", or kUnnamed. */
std::string operationAt(const void* address) {
    Dl_info symbol{};
    if (dladdr(address, &symbol) == 0 || symbol.dli_saddr != address) {
        return kUnnamed;
    }
    // "...::IDisplayEngineService::getSupported(int, int*)"
    char* const demangled = abi::__cxa_demangle(symbol.dli_sname, nullptr, nullptr, nullptr);
    const std::string text = demangled == nullptr ? symbol.dli_sname : demangled;
    std::free(demangled);
    const std::string qualified = text.substr(0, text.find('('));
    return qualified.substr(qualified.rfind(':') + 1);
}

/** The operations in the first slots of the table of the class that has this decorated name. */
Slots slotsOf(const std::string& className, size_t count) {
    const auto* table = static_cast<void**>(dlsym(RTLD_DEFAULT, ("_ZTV" + className).c_str()));
    const void* type = dlsym(RTLD_DEFAULT, ("_ZTI" + className).c_str());
    if (table == nullptr || type == nullptr) {
        return {className + " is not exported"};
    }
    // The slots follow the type information; in front of it stand the offsets of virtual bases.
    while (*table != type) {
        ++table;
    }
    Slots slots(count);
    std::transform(table + 1, table + 1 + count, slots.begin(), operationAt);
    return slots;
}

// The interfaces are abstract, so their order is read off classes that implement the operations.
// A destructor takes two slots. kUnnamed: onAsBinder and other members of the platform's bases.
TEST(VirtualSlotsTest, FollowThePublishedOrder) {
    Slots service = {"~BpDisplayEngineService", "~BpDisplayEngineService", kUnnamed,
                     "getInterfaceDescriptor"};
    for (const protocol::Operation& operation : protocol::kOperations) {
        service.push_back(operation.call.substr(0, operation.call.find(' ')));
    }
    const std::pair<std::string, Slots> tables[] = {
        {"N3com6tivora13displayengine22BpDisplayEngineServiceE", service},
        {"N3com6tivora13displayengine23BpDisplayEngineCallbackE",
         {"~BpDisplayEngineCallback", "~BpDisplayEngineCallback", kUnnamed,
          "getInterfaceDescriptor", "onEvent", "onEventWithData"}},
        {"N10AisrEngine14ClientCallbackE",
         {"~ClientCallback", "~ClientCallback", kUnnamed, kUnnamed, "onEvent", "onEventWithData",
          kUnnamed, "onTransact"}},
        {"N3com6tivora13displayengine15DeGraphicBufferE",
         {"~DeGraphicBuffer", "~DeGraphicBuffer", "writeToParcel", "readFromParcel", kUnnamed}},
    };
    for (const auto& [className, slots] : tables) {
        EXPECT_EQ(slotsOf(className, slots.size()), slots) << className;
    }
}

}  // namespace
