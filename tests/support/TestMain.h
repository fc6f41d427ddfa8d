// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>

#include <functional>
#include <map>
#include <string>

/** What a test's program does as another program; it is given the second argument. */
using Role = std::function<int(const std::string&)>;

/** main() of a test: runs the role that the first argument names, otherwise the tests. */
int testMain(int argc, char** argv, const std::map<std::string, Role>& roles);

/**
 * Registers the display engine service, writes "ready", and serves until the process is ended; 1
 * when it cannot.
 */
int serve(const android::sp<android::IBinder>& service);
