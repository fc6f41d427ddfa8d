// SPDX-License-Identifier: Apache-2.0
// displayengine-service: a display engine service for a desk machine.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <utils/Errors.h>
#include <utils/String16.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "Options.h"
#include "Report.h"
#include "SampleService.h"
#include "ServiceLoop.h"

namespace {

constexpr char kServiceName[] = "DisplayEngineService";

std::string whyNotRegistered(android::status_t status) {
    switch (status) {
        case android::ALREADY_EXISTS:
            return "another process has already registered a service of this name";
        case android::PERMISSION_DENIED:
            return "the runtime directory belongs to another user or is open to others "
                   "(DISPLAYENGINE_RUNTIME_DIR names one)";
        default:
            return android::statusToString(status);
    }
}

int run(const sample::Options& options) {
    sample::ServiceLoop loop(options.toggles);
    const android::sp<sample::SampleService> service = new sample::SampleService(options);
    const android::status_t status =
        android::defaultServiceManager()->addService(android::String16(kServiceName), service);
    if (status != android::OK) {
        std::cerr << "displayengine-service: cannot register " << kServiceName << ": "
                  << whyNotRegistered(status) << std::endl;
        return EXIT_FAILURE;
    }
    android::ProcessState::self()->startThreadPool();
    sample::report("ready");
    loop.run(service.get());
    sample::report("stopped");
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    sample::Options options;
    if (const std::optional<int> code = sample::parseOptions(argc, argv, &options)) {
        return *code;
    }
    try {
        return run(options);
    } catch (const std::exception& error) {
        std::cerr << "displayengine-service: " << error.what() << std::endl;
        return EXIT_FAILURE;
    }
}
