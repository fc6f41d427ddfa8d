// SPDX-License-Identifier: Apache-2.0
#include "tools/support/StopSignal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <system_error>

namespace {

/** Read by the signal handler, hence not a member. Never closed: a signal can come at any time. */
volatile std::sig_atomic_t gEvent = -1;

void setEvent(int) {
    const int savedErrno = errno;
    const uint64_t one = 1;
    // Fails only when the event is set already.
    [[maybe_unused]] const ssize_t written = write(gEvent, &one, sizeof(one));
    errno = savedErrno;
}

}  // namespace

StopSignal::StopSignal() {
    gEvent = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (gEvent < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    struct sigaction action = {};
    action.sa_handler = setEvent;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void StopSignal::request() const {
    setEvent(0);
}

bool StopSignal::waitUntil(std::chrono::steady_clock::time_point due) const {
    for (;;) {
        const std::chrono::nanoseconds wait = due - std::chrono::steady_clock::now();
        const int64_t left = std::max<int64_t>(wait.count(), 0);
        const timespec timeout = {static_cast<time_t>(left / 1'000'000'000),
                                  static_cast<long>(left % 1'000'000'000)};
        pollfd event = {gEvent, POLLIN, 0};
        const int ready = ppoll(&event, 1, &timeout, nullptr);
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;
        }
    }
}
