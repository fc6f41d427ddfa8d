// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string>

#include "NoMemory.h"

namespace {

constexpr size_t kUsualLength = 1024;

std::atomic<__android_logger_function> gLogger{__android_log_stderr_logger};

// Chosen for the length of a call, so that numbers look the same in every locale, as on the device.
const locale_t kPlainLocale = newlocale(LC_ALL_MASK, "C", nullptr);

/** What a log call leaves as it was: the locale, and the error number that its caller will read. */
class Undisturbed {
public:
    ~Undisturbed() {
        uselocale(mLocale);
        errno = mErrno;
    }

private:
    const int mErrno = errno;
    const locale_t mLocale = uselocale(kPlainLocale);
};

}  // namespace

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    const Undisturbed undisturbed;
    char usual[kUsualLength];
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(usual, sizeof usual, format, arguments);
    std::string whole;
    if (length >= 0 && static_cast<size_t>(length) >= sizeof usual) {
        android::orNoMemory([&] {
            whole.resize(static_cast<size_t>(length));
            std::vsnprintf(whole.data(), whole.size() + 1, format, again);
        });
    }
    va_end(again);
    va_end(arguments);
    if (length < 0) {
        return -EINVAL;
    }
    __android_log_message message{sizeof message, 0, priority, "", nullptr, 0, usual};
    message.tag = tag != nullptr ? tag : "";
    message.message = whole.empty() ? usual : whole.c_str();
    gLogger.load(std::memory_order_acquire)(&message);
    return 1;
}

void __android_log_set_logger(__android_logger_function logger) {
    gLogger.store(logger != nullptr ? logger : __android_log_stderr_logger,
                  std::memory_order_release);
}

void __android_log_stderr_logger(const __android_log_message* message) {
    // Closed, or closed and its number taken since by a descriptor of this library, all of which
    // close on exec: a line of the log would reach a peer's connection, or an image.
    if (fcntl(STDERR_FILENO, F_GETFD) != 0) {
        return;
    }
    constexpr char kLetters[] = "??VDIWEFS";
    const bool known = message->priority >= 0 && message->priority <= ANDROID_LOG_SILENT;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char date[32];
    std::strftime(date, sizeof date, "%m-%d %H:%M:%S", &local);
    // The stream's own lock keeps the line whole: it lasts until the very end of the process, a
    // child of fork finds it free, and what the program itself prints there stays apart too.
    std::fprintf(stderr, "%s.%03ld %5d %5ld %c %s: %s\n", date, now.tv_nsec / 1000000,
                 static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)),
                 known ? kLetters[message->priority] : '?', message->tag, message->message);
}
