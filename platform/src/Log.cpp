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

/**
 * What a log call leaves as it was: the error number that its caller is about to look at, and the
 * locale, which is "C" meanwhile as on the device, so that numbers always look the same.
 */
class Undisturbed {
public:
    ~Undisturbed() {
        uselocale(mLocale);
        errno = mErrno;
    }

private:
    static locale_t plain() {
        static const locale_t theLocale = newlocale(LC_ALL_MASK, "C", nullptr);
        return theLocale;
    }
    const int mErrno = errno;
    const locale_t mLocale = uselocale(plain());
};

std::string linePrefix(const __android_log_message& message) {
    constexpr char kLetters[] = "??VDIWEFS";
    const bool known = message.priority >= 0 && message.priority <= ANDROID_LOG_SILENT;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char date[32];
    std::strftime(date, sizeof date, "%m-%d %H:%M:%S", &local);
    char text[96];
    std::snprintf(text, sizeof text, "%s.%03ld %5d %5ld %c ", date, now.tv_nsec / 1000000,
                  static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)),
                  known ? kLetters[message.priority] : '?');
    return text;
}

void writeAll(const std::string& line) {
    size_t done = 0;
    while (done < line.size()) {
        const ssize_t count = write(STDERR_FILENO, line.data() + done, line.size() - done);
        if (count > 0) {
            done += static_cast<size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            return;  // Nobody reads standard error: there is nowhere left to say so.
        }
    }
}

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
            return android::OK;
        });
    }
    va_end(again);
    va_end(arguments);
    if (length < 0) {
        return -EINVAL;
    }
    __android_log_message message{};
    message.struct_size = sizeof message;
    message.priority = priority;
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
    // The stream's own lock: it lasts until the very end of the process, a child of fork finds it
    // free, and what the program itself prints there stays apart too.
    android::orNoMemory([message] {
        const std::string line =
            linePrefix(*message) + message->tag + ": " + message->message + "\n";
        flockfile(stderr);
        writeAll(line);
        funlockfile(stderr);
        return android::OK;
    });
}
