// SPDX-License-Identifier: Apache-2.0
// dectl: asks and sets the features of the display engine service from the command line.
#include <binder/IInterface.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "LibraryLog.h"
#include "Options.h"
#include "TimeLimit.h"
#include "client/ServiceConnection.h"

namespace control {
namespace {

int fail(ExitCode code, const std::string& reason) {
    std::cerr << "dectl: " << reason << std::endl;
    return code;
}

int run(const Options& options) {
    takeLibraryLog(options.isVerbose);
    raiseLogSwitches();
    const TimeLimit limit(options.timeout);
    // The manager would wait some seconds for a service.
    const auto service = limit.run(checkDisplayEngineService);
    if (service == nullptr) {
        const std::string why = platformWarning();
        return fail(kUnavailable, why.empty()
                                      ? "the display engine service is not running"
                                      : "cannot look for the display engine service: " + why);
    }
    Session session = {service, new DisplayEngineManager, options.arguments,
                       Output(options.isJson)};
    raiseLogSwitches();
    const Outcome outcome = limit.run([&] { return options.command(session); });
    if (outcome.watch != nullptr) {
        outcome.watch();
    }
    // A service that died on the way has left only failure values, some of which look like answers.
    const android::sp<android::IBinder> binder = android::IInterface::asBinder(service);
    if (limit.run([&] { return binder->pingBinder(); }) != android::OK) {
        return fail(kUnavailable, "the display engine service has died");
    }
    if (!outcome.refusal.empty()) {
        return fail(kRefused, "the service refused " + outcome.refusal);
    }
    if (hasLoggedFailure()) {
        return fail(kRefused, "the service refused (--verbose shows the library's log)");
    }
    for (const std::string& warning : outcome.warnings) {
        std::cerr << "dectl: warning: " << warning << std::endl;
    }
    if (!outcome.values.is_null()) {
        session.output.printValues(outcome.values);
    }
    if (!std::cout.flush()) {
        return fail(kUnavailable, "cannot write to standard output");
    }
    return kDone;
}

}  // namespace

void TimeLimit::endUnanswered() {
    std::_Exit(fail(kUnavailable, "the display engine service does not answer"));
}

}  // namespace control

int main(int argc, char** argv) {
    control::Options options;
    if (const std::optional<int> code = control::parseOptions(argc, argv, &options)) {
        return *code;
    }
    try {
        return control::run(options);
    } catch (const std::exception& error) {
        return control::fail(control::kUnavailable, error.what());
    }
}
