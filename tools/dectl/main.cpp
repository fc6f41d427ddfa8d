// SPDX-License-Identifier: Apache-2.0
// dectl: asks and sets the features of the display engine service from the command line.
#include <binder/IInterface.h>

#include <exception>
#include <iostream>
#include <string>

#include "LibraryLog.h"
#include "Options.h"
#include "client/ServiceConnection.h"

namespace {

int fail(control::ExitCode code, const std::string& reason) {
    std::cerr << "dectl: " << reason << std::endl;
    return code;
}

int run(const control::Options& options) {
    control::takeLibraryLog(options.isVerbose);
    // The manager would wait some seconds for a service.
    const auto service = checkDisplayEngineService();
    if (service == nullptr) {
        return fail(control::kUnavailable, "the display engine service is not running");
    }
    control::Session session = {service, new DisplayEngineManager, options.arguments,
                                control::Output(options.isJson)};
    const control::Outcome outcome = options.command(session);

    // A service that died on the way has left only failure values, some of which look like answers.
    if (android::IInterface::asBinder(service)->pingBinder() != android::OK) {
        return fail(control::kUnavailable, "the display engine service has died");
    }
    if (!outcome.refusal.empty()) {
        return fail(control::kRefused, "the service refused " + outcome.refusal);
    }
    if (control::hasLoggedFailure()) {
        return fail(control::kRefused, "the service refused (--verbose shows the library's log)");
    }
    if (!outcome.values.is_null()) {
        session.output.printValues(outcome.values);
    }
    if (!std::cout.flush()) {
        return fail(control::kUnavailable, "cannot write to standard output");
    }
    return control::kDone;
}

}  // namespace

int main(int argc, char** argv) {
    control::Options options;
    if (const std::optional<int> code = control::parseOptions(argc, argv, &options)) {
        return *code;
    }
    try {
        return run(options);
    } catch (const std::exception& error) {
        return fail(control::kUnavailable, error.what());
    }
}
