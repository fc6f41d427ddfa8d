// Finding the service, and the functions that do without a manager. Each test needs a process of
// its own, as the test runner gives it.
#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <utils/String16.h>

#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/DisplayEngineCleanCommon.h"
#include "support/EngineService.h"
#include "support/LogCapture.h"

using android::sp;
using android::String16;
using android::binder::Status;
using com::tivora::displayengine::IDisplayEngineService;

namespace {

constexpr int32_t kFailure = -22;

TEST(ServiceConnection, LooksAgainUntilTheServiceIsFoundAndThenNeverMore) {
    LogCapture log;
    const sp<DisplayEngineManager> manager = new DisplayEngineManager;
    EXPECT_EQ(checkDisplayEngineService(), nullptr);
    EXPECT_EQ(log.lines().back(), "6 DE N DEM checkDisplayEngineService:#: binder is nullptr!");
    EXPECT_EQ(manager->getService(), nullptr) << "after the service manager's wait";
    EXPECT_EQ(log.lines().back(), "6 DE N DEM getDisplayEngineService:#: binder is nullptr!");

    const sp<EngineService> service = EngineService::install();
    const int32_t before = service->getStrongCount();
    EXPECT_EQ(manager->getService(), service);
    EXPECT_EQ(checkDisplayEngineService(), service);
    EXPECT_EQ(getDisplayEngineService(), service);
    EXPECT_EQ(service->getStrongCount(), before + 1) << "the manager keeps a reference";
    {
        const sp<DisplayEngineManager> another = new DisplayEngineManager;
        EXPECT_EQ(another->getService(), service);
        EXPECT_EQ(service->getStrongCount(), before + 2);
    }
    EXPECT_EQ(service->getStrongCount(), before + 1) << "and gives it back";

    const sp<EngineService> successor = new EngineService;
    ASSERT_EQ(
        android::defaultServiceManager()->addService(String16("DisplayEngineService"), successor),
        android::OK);
    EXPECT_EQ(checkDisplayEngineService(), successor);
    EXPECT_EQ(manager->getService(), service) << "once found, it is never looked up again";
}

TEST(ServiceConnection, SetsCwbForceEnable) {
    const sp<EngineService> service = EngineService::install();
    const struct {
        int32_t enable;
        Status status;
        int32_t result;
        std::vector<std::string> calls;
        std::string message;
    } cases[] = {
        {1,
         Status::ok(),
         0,
         {"setData 24 forceEnable=1"},
         "4 DE N DEM setCwbForceEnable:#: input "
         "enable is 1"},
        {0,
         Status::ok(),
         0,
         {"setData 24 forceEnable=0"},
         "4 DE N DEM setCwbForceEnable:#: input "
         "enable is 0"},
        {2,
         Status::ok(),
         kFailure,
         {},
         "6 DE N DEM setCwbForceEnable:#: input enable should be 1 "
         "or 0, but the real input value is 2"},
        {-1,
         Status::ok(),
         kFailure,
         {},
         "6 DE N DEM setCwbForceEnable:#: input enable should be 1 "
         "or 0, but the real input value is -1"},
        {1,
         Status::fromExceptionCode(Status::EX_SECURITY),
         kFailure,
         {"setData 24 forceEnable=1"},
         "6 DE N DEM setCwbForceEnable:#: Failed to setData(DE_DATA_TYPE_CWB_FORCE_ENABLE, 1)!"},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.message);
        LogCapture log;
        service->dataStatus = expected.status;
        EXPECT_EQ(setCwbForceEnable(expected.enable), expected.result);
        EXPECT_EQ(service->takeCalls(), expected.calls);
        EXPECT_EQ(log.lines().back(), expected.message);
    }
}

}  // namespace
