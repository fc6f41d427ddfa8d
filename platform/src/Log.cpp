// SPDX-License-Identifier: Apache-2.0
#include <android/log.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <ctime>
#include <string>

namespace {

constexpr size_t kUsualLength = 1024;

std::atomic<__android_logger_function> gLogger{__android_log_stderr_logger};

/** Logging must not disturb the error number that its caller is about to look at. */
class ErrnoKeeper {
public:
    ~ErrnoKeeper() { errno = mSaved; }

private:
    const int mSaved = errno;
};

/** The device knows no other locale: a number looks the same whatever the process has chosen. */
class CLocale {
public:
    CLocale() : mPrevious(uselocale(plain())) {}
    ~CLocale() { uselocale(mPrevious); }

private:
    static locale_t plain() {
        static const locale_t theLocale = newlocale(LC_ALL_MASK, "C", nullptr);
        return theLocale;
    }
    const locale_t mPrevious;
};

char priorityLetter(int32_t priority) {
    constexpr char kLetters[] = "??VDIWEFS";
    return priority >= 0 && priority <= ANDROID_LOG_SILENT ? kLetters[priority] : '?';
}

std::string linePrefix(const __android_log_message& message) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char date[32];
    std::strftime(date, sizeof date, "%m-%d %H:%M:%S", &local);
    char text[96];
    std::snprintf(text, sizeof text, "%s.%03ld %5d %5ld %c ", date, now.tv_nsec / 1000000,
                  static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)),
                  priorityLetter(message.priority));
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

int __android_log_write(int priority, const char* tag, const char* text) {
    const ErrnoKeeper keeper;
    const __android_log_message message{sizeof message,
                                        LOG_ID_MAIN,
                                        priority,
                                        tag != nullptr ? tag : "",
                                        nullptr,
                                        0,
                                        text != nullptr ? text : ""};
    gLogger.load(std::memory_order_acquire)(&message);
    return 1;
}

int __android_log_vprint(int priority, const char* tag, const char* format, va_list arguments) {
    const ErrnoKeeper keeper;
    va_list again;
    va_copy(again, arguments);
    const CLocale locale;
    char usual[kUsualLength];
    const int length = std::vsnprintf(usual, sizeof usual, format, arguments);
    int result = -EINVAL;
    if (length >= 0 && static_cast<size_t>(length) < sizeof usual) {
        result = __android_log_write(priority, tag, usual);
    } else if (length >= 0) {
        std::string text(static_cast<size_t>(length), '\0');
        std::vsnprintf(text.data(), text.size() + 1, format, again);
        result = __android_log_write(priority, tag, text.c_str());
    }
    va_end(again);
    return result;
}

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = __android_log_vprint(priority, tag, format, arguments);
    va_end(arguments);
    return result;
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
    const std::string line = linePrefix(*message) + message->tag + ": " + message->message + "\n";
    // The stream's own lock: it lasts until the very end of the process, a child of fork finds it
    // free, and what the program itself prints there stays apart too.
    flockfile(stderr);
    writeAll(line);
    funlockfile(stderr);
}
