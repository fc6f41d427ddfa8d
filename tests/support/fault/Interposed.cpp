// SPDX-License-Identifier: Apache-2.0
// Stands before functions of the C library, for the test program and the libraries it uses.
#include <dlfcn.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "support/FaultInjection.h"

namespace {

std::atomic<bool> gIsInterrupting{false};
std::atomic<int> gReadError{0};
[[maybe_unused]] thread_local bool tHasNoMemory = false;

/** True, with errno set, when this call of the function is the one to be interrupted. */
template <char FUNCTION>
bool isInterrupted() {
    static thread_local bool tInterrupted = false;
    tInterrupted = !tInterrupted && gIsInterrupting;
    if (tInterrupted) {
        errno = EINTR;
    }
    return tInterrupted;
}

}  // namespace

// A sanitizer's runtime stands before these functions as well; it has to see the calls.
#define REAL(name) real(__interceptor_##name, #name)
#define WEAK_INTERCEPTOR(type, name, ...) \
    extern "C" __attribute__((weak)) type __interceptor_##name(__VA_ARGS__)

template <typename FUNC>
static FUNC* real(FUNC* interceptor, const char* name) {
    return interceptor != nullptr ? interceptor : reinterpret_cast<FUNC*>(dlsym(RTLD_NEXT, name));
}

WEAK_INTERCEPTOR(ssize_t, sendmsg, int, const msghdr*, int);
WEAK_INTERCEPTOR(ssize_t, recvmsg, int, msghdr*, int);
WEAK_INTERCEPTOR(ssize_t, read, int, void*, size_t);
WEAK_INTERCEPTOR(int, poll, pollfd*, nfds_t, int);

extern "C" ssize_t sendmsg(int socket, const msghdr* message, int flags) {
    return isInterrupted<'s'>() ? -1 : REAL(sendmsg)(socket, message, flags);
}

extern "C" ssize_t recvmsg(int socket, msghdr* message, int flags) {
    return isInterrupted<'r'>() ? -1 : REAL(recvmsg)(socket, message, flags);
}

extern "C" ssize_t read(int file, void* bytes, size_t size) {
    errno = gReadError;
    return gReadError != 0 ? -1 : REAL(read)(file, bytes, size);
}

extern "C" int poll(pollfd* waited, nfds_t count, int timeout) {
    return isInterrupted<'p'>() ? -1 : REAL(poll)(waited, count, timeout);
}

#ifndef FAULT_REAL_ALLOCATIONS
// What it answers is freed by the C++ runtime's own operator, which calls free().
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    return tHasNoMemory ? nullptr : std::malloc(size);
}
#endif

namespace fault {

void setInterrupting(bool on) {
    gIsInterrupting = on;
}

void setReadError(int error) {
    gReadError = error;
}

void setNoMemory(bool on) {
    tHasNoMemory = on;
}

}  // namespace fault
