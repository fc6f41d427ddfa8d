// SPDX-License-Identifier: Apache-2.0
#include "ServiceLoop.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <system_error>

#include "Report.h"

namespace sample {
namespace {

constexpr size_t kLongestCommand = 4096;

}  // namespace

ServiceLoop::ServiceLoop(const std::vector<Toggle>& toggles)
    : mSignals(-1), mToggles(toggles.begin(), toggles.end()) {
    // A reader of the report that goes away must not end the service, and a shell's background job
    // must not stop on its terminal.
    signal(SIGPIPE, SIG_IGN);
    signal(SIGTTIN, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    if (pthread_sigmask(SIG_BLOCK, &signals, nullptr) != 0 ||
        (mSignals = signalfd(-1, &signals, SFD_CLOEXEC)) < 0) {
        throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
    }
}

ServiceLoop::~ServiceLoop() {
    close(mSignals);
}

void ServiceLoop::run(SampleService* service) {
    mStart = Clock::now();
    for (;;) {
        pollfd sources[] = {{mSignals, POLLIN, 0}, {mInputOpen ? STDIN_FILENO : -1, POLLIN, 0}};
        if (poll(sources, 2, millisecondsToToggle()) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "cannot wait for commands");
        }
        if (sources[0].revents != 0) {
            return;
        }
        runToggles(service);
        if (sources[1].revents != 0 && !readCommands(service)) {
            return;
        }
    }
}

int ServiceLoop::millisecondsToToggle() const {
    if (mToggles.empty()) {
        return -1;
    }
    const auto left = mStart + mToggles.front().after - Clock::now();
    const auto rounded = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return static_cast<int>(std::max<int64_t>(rounded, 0));
}

void ServiceLoop::runToggles(SampleService* service) {
    while (!mToggles.empty() && mStart + mToggles.front().after <= Clock::now()) {
        service->setEnabled(mToggles.front().enable);
        mToggles.pop_front();
    }
}

bool ServiceLoop::readCommands(SampleService* service) {
    char buffer[512];
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
    if (count <= 0) {
        mInputOpen = count < 0 && errno == EINTR;
        return true;
    }
    mInput.append(buffer, static_cast<size_t>(count));
    size_t end;
    while ((end = mInput.find('\n')) != std::string::npos) {
        const std::string command = mInput.substr(0, end);
        mInput.erase(0, end + 1);
        if (!execute(command, service)) {
            return false;
        }
    }
    if (mInput.size() > kLongestCommand) {
        std::cerr << "displayengine-service: command too long, ignored" << std::endl;
        mInput.clear();
    }
    return true;
}

bool ServiceLoop::execute(const std::string& command, SampleService* service) {
    if (command == "enable on" || command == "enable off") {
        service->setEnabled(command == "enable on");
    } else if (command == "status") {
        service->reportStatus();
    } else if (command == "quit") {
        return false;
    } else if (!command.empty()) {
        std::cerr << "displayengine-service: unknown command '" << printable(command)
                  << "'; known are: enable on, enable off, status, quit" << std::endl;
    }
    return true;
}

}  // namespace sample
