// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <gtest/gtest.h>
#include <utils/String16.h>

#include <functional>
#include <iostream>
#include <map>
#include <string>

/** What a test's program does as another program; it is given the second argument. */
using Role = std::function<int(const std::string&)>;

/** main() of a test: runs the role that the first argument names, otherwise the tests. */
inline int testMain(int argc, char** argv, const std::map<std::string, Role>& roles) {
    const auto role = roles.find(argc > 1 ? argv[1] : "");
    if (role != roles.end()) {
        return role->second(argc > 2 ? argv[2] : "");
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

/**
 * Registers the display engine service, writes "ready", and serves until the process is ended; 1
 * when it cannot.
 */
inline int serve(const android::sp<android::IBinder>& service) {
    if (android::defaultServiceManager()->addService(android::String16("DisplayEngineService"),
                                                     service) != android::OK) {
        return 1;
    }
    android::ProcessState::self()->startThreadPool();
    std::cout << "ready" << std::endl;
    android::IPCThreadState::self()->joinThreadPool();
    return 0;
}
