// SPDX-License-Identifier: Apache-2.0
// Finding the service, which the process must not have registered before.
#include <binder/IServiceManager.h>
#include <gtest/gtest.h>
#include <utils/String16.h>

#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "support/EngineService.h"
#include "support/LogCapture.h"

using android::sp;
using android::String16;

namespace {

TEST(ServiceConnectionTest, LooksAgainUntilTheServiceIsFoundAndThenNeverMore) {
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

}  // namespace
