// SPDX-License-Identifier: Apache-2.0
// displayengine-service: a display engine service for a desk machine.
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>
#include <unistd.h>
#include <utils/Errors.h>
#include <utils/String16.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <thread>

#include "Options.h"
#include "Report.h"
#include "SampleService.h"
#include "tools/support/StopSignal.h"

namespace {

using android::sp;
using sample::SampleService;
using Clock = std::chrono::steady_clock;

constexpr char kServiceName[] = "DisplayEngineService";
constexpr size_t kLongestCommand = 4096;

int fail(const std::string& reason) {
    std::cerr << "displayengine-service: " << reason << std::endl;
    return EXIT_FAILURE;
}

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

void execute(const std::string& command, SampleService& service, const StopSignal& stop) {
    if (command == "enable on" || command == "enable off") {
        service.setEnabled(command == "enable on");
    } else if (command == "status") {
        sample::report(linesOf(service.state()));
    } else if (command == "quit") {
        stop.request();
    } else if (!command.empty()) {
        fail("unknown command '" + sample::printable(command) +
             "'; known are: enable on, enable off, status, quit");
    }
}

/** Until the end of standard input. Not by a stream: the process's exit might wait for its lock. */
void readCommands(const sp<SampleService>& service, const StopSignal& stop) {
    std::string command;
    for (char c = 0; read(STDIN_FILENO, &c, 1) == 1;) {
        if (c != '\n' && command.size() < kLongestCommand) {
            command += c;
        } else {
            execute(command, *service, stop);
            command.clear();
        }
    }
}

int run(const sample::Options& options) {
    // A reader of the report that goes away must not end the service, and a shell's background job
    // must not stop on its terminal.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGTTIN, SIG_IGN);
    static const StopSignal stop;
    const sp<SampleService> service = new SampleService(options);
    const android::status_t status =
        android::defaultServiceManager()->addService(android::String16(kServiceName), service);
    if (status != android::OK) {
        return fail(std::string("cannot register ") + kServiceName + ": " +
                    whyNotRegistered(status));
    }
    android::ProcessState::self()->startThreadPool();
    sample::report("ready");
    const Clock::time_point start = Clock::now();
    std::thread([service] { readCommands(service, stop); }).detach();
    for (const auto& [after, enable] : options.toggles) {
        if (stop.waitUntil(start + after)) {
            break;
        }
        service->setEnabled(enable);
    }
    stop.waitUntil(Clock::time_point::max());
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
        return fail(error.what());
    }
}
