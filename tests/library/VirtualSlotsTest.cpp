// SPDX-License-Identifier: Apache-2.0
// What code built apart from the library relies on: the places of virtual operations in the tables,
// and of members in the objects.
#include <cxxabi.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "aidl/DeGraphicBuffer.h"
#include "aisr/AisrAlgorithm.h"
#include "aisr/AisrEngine.h"
#include "client/DisplayEngineManager.h"
#include "client/VideoEngine.h"

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
std::vector<std::string> slotsOf(const std::string& className, size_t count) {
    const auto* table = static_cast<void**>(dlsym(RTLD_DEFAULT, ("_ZTV" + className).c_str()));
    const void* type = dlsym(RTLD_DEFAULT, ("_ZTI" + className).c_str());
    if (table == nullptr || type == nullptr) {
        return {className + " is not exported"};
    }
    // The slots follow the type information; in front of it stand the offsets of virtual bases.
    while (*table != type) {
        ++table;
    }
    std::vector<std::string> slots(count);
    std::transform(table + 1, table + 1 + count, slots.begin(), operationAt);
    return slots;
}

// The interfaces are abstract, so their order is read off classes that implement the operations.
// A destructor takes two slots. kUnnamed: onAsBinder and other members of the platform's bases.
TEST(SlotOrderTest, matchesThePublishedOne) {
    const std::pair<std::string, std::vector<std::string>> tables[] = {
        {"N3com6tivora13displayengine22BpDisplayEngineServiceE",
         {"~BpDisplayEngineService", "~BpDisplayEngineService", kUnnamed, "getInterfaceDescriptor",
          "getSupported", "setScene", "setData", "getEffectEx", "getEffect", "getEffectExByData",
          "setEffect", "registerCallback", "registerCallbackEx", "unregisterCallback",
          "unregisterCallbackEx", "processGraphicBuffer"}},
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

// Members. An explicit instantiation may name private ones, hence the template arguments.

struct Place {
    size_t offset;
    size_t size;
    size_t alignment;
};

template <typename OWNER, typename MEMBER>
Place placeOf(MEMBER OWNER::*member) {
    // A pointer to a data member is its offset.
    static_assert(sizeof member == sizeof(ptrdiff_t));
    ptrdiff_t offset = 0;
    std::memcpy(&offset, &member, sizeof offset);
    return {static_cast<size_t>(offset), sizeof(MEMBER), alignof(MEMBER)};
}

std::vector<std::vector<Place>>& layouts() {
    static std::vector<std::vector<Place>> list;
    return list;
}

template <auto... MEMBERS>
struct MembersInOrder {
    static const bool isListed;
};

template <auto... MEMBERS>
const bool MembersInOrder<MEMBERS...>::isListed = (layouts().push_back({placeOf(MEMBERS)...}),
                                                   true);

using Manager = DisplayEngineManager;
using Buffer = com::tivora::displayengine::DeGraphicBuffer;

template struct MembersInOrder<&Manager::mService, &Manager::mServiceLock,
                               &Manager::mSupportRgLedPrinted, &Manager::mSupportRgLedQueried,
                               &Manager::mSupportRgLed, &Manager::mLastBrightnessLevel>;
template struct MembersInOrder<&VideoEngine::mAisrValid, &VideoEngine::mAisrMutex,
                               &VideoEngine::mAisrEngine>;
template struct MembersInOrder<
    &AisrEngine::mAlgorithm, &AisrEngine::mIsInitialized, &AisrEngine::mAppName,
    &AisrEngine::mMinWidth, &AisrEngine::mMinHeight, &AisrEngine::mMaxWidth,
    &AisrEngine::mMaxHeight, &AisrEngine::mMaxFps, &AisrEngine::mMonitorMaxFps,
    &AisrEngine::mMonitorTolerance, &AisrEngine::mMonitorRestore, &AisrEngine::mTimeoutAbortMs,
    &AisrEngine::mTimeoutOverloadMs, &AisrEngine::mTimeoutTolerancePeriodMs,
    &AisrEngine::mTimeoutToleranceCount, &AisrEngine::mTaskCond, &AisrEngine::mTaskMutex,
    &AisrEngine::mIsReady, &AisrEngine::mRetryCount, &AisrEngine::mLastId, &AisrEngine::mFrameIdx,
    &AisrEngine::mIsEnhanceAlive, &AisrEngine::mThread, &AisrEngine::mTasks,
    &AisrEngine::mIsOverload, &AisrEngine::mTimeoutHistory, &AisrEngine::mMonitorStart,
    &AisrEngine::mIsUnhealthy, &AisrEngine::mMonitorFrameCount, &AisrEngine::mMonitorHighCount,
    &AisrEngine::mMonitorNormalCount, &AisrEngine::mUnhealthyId, &AisrEngine::mStateMutex,
    &AisrEngine::mIsEnable, &AisrEngine::mWidth, &AisrEngine::mHeight, &AisrEngine::mFps,
    &AisrEngine::mIsEnhance, &AisrEngine::mEnhanceCount>;
template struct MembersInOrder<
    &AisrAlgorithm::mMutex, &AisrAlgorithm::mHandle, &AisrAlgorithm::mIsLoaded,
    &AisrAlgorithm::mIsInited, &AisrAlgorithm::mContext, &AisrAlgorithm::mInitFunc,
    &AisrAlgorithm::mDeinitFunc, &AisrAlgorithm::mProcessFunc, &AisrAlgorithm::mDoCleanFunc,
    &AisrAlgorithm::mGetParamFunc, &AisrAlgorithm::mSetParamFunc>;
template struct MembersInOrder<&Buffer::mParams, &Buffer::mGraphicBuffer>;

TEST(MemberOrderTest, membersFollowOneAnotherAfterTheTable) {
    ASSERT_EQ(layouts().size(), 5U);
    for (const std::vector<Place>& layout : layouts()) {
        size_t end = sizeof(void*);  // of the pointer to the table of virtual operations
        for (const Place& place : layout) {
            const size_t next = (end + place.alignment - 1) / place.alignment * place.alignment;
            EXPECT_EQ(place.offset, next) << "in a class of " << layout.size() << " members";
            end = place.offset + place.size;
        }
    }
}

}  // namespace
