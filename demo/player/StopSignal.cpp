// SPDX-License-Identifier: Apache-2.0
#include "StopSignal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <system_error>

namespace player {
namespace {

// Read by the handler, hence not a member.
volatile std::sig_atomic_t gEvent = -1;

void requestStop(int) {
    const int savedErrno = errno;
    const uint64_t one = 1;
    const ssize_t written = write(gEvent, &one, sizeof(one));
    static_cast<void>(written);  // the event is set already when there is no room for more
    errno = savedErrno;
}

}  // namespace

StopSignal::StopSignal() {
    gEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (gEvent < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    struct sigaction action = {};
    action.sa_handler = requestStop;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

StopSignal::~StopSignal() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    close(gEvent);
    gEvent = -1;
}

bool StopSignal::isRequested() const {
    return waitUntil({});
}

bool StopSignal::waitUntil(std::chrono::steady_clock::time_point due) const {
    using std::chrono::nanoseconds;
    for (;;) {
        const nanoseconds left =
            std::max<nanoseconds>(due - std::chrono::steady_clock::now(), nanoseconds(0));
        const timespec timeout = {static_cast<time_t>(left.count() / 1'000'000'000),
                                  static_cast<long>(left.count() % 1'000'000'000)};
        pollfd event = {static_cast<int>(gEvent), POLLIN, 0};
        const int ready = ppoll(&event, 1, &timeout, nullptr);
        if (ready > 0) {
            return true;
        }
        if (ready == 0 || errno != EINTR) {
            return false;
        }
    }
}

}  // namespace player
