// SPDX-License-Identifier: Apache-2.0
#include "support/FaultInjection.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <regex>
#include <thread>
#include <utility>

#include "support/LogCapture.h"
#include "support/ThreadState.h"

namespace fault {

namespace {

size_t countFiles(const std::string& directory) {
    const std::filesystem::directory_iterator files(directory);
    return static_cast<size_t>(std::distance(begin(files), end(files)));
}

}  // namespace

std::string holdings() {
    // A sanitizer starts a thread of its own with the program's first, which this one then is.
    static std::once_flag isStarted;
    std::call_once(isStarted, [] { std::thread(pause).detach(); });
    return std::to_string(countFiles("/proc/self/fd")) + " descriptors, " +
           std::to_string(countFiles("/proc/self/task")) + " threads";
}

void expectReturnTo(const std::string& before) {
    waitUntil("the process to hold " + before + " again", [&] { return holdings() == before; });
}

std::string takeComplaints(LogCapture* log) {
    static const std::pair<std::regex, const char*> kVarying[] = {
        {std::regex("/proc/[0-9]+/"), "/proc/PID/"},
        {std::regex("idx=[0-9]+"), "idx=#"},
        {std::regex("=0x[0-9a-f]+"), "=0x#"},
        {std::regex("[-+.0-9e]+([(][0-9]+[)])?ms"), "#$1ms"},
        {std::regex("([:,])/[^ }]*Test"), "$1NAME"},
        {std::regex(" - /[^ ]*/system/lib64/"), " - ROOT/system/lib64/"}};
    std::string complaints;
    for (std::string line : log->take()) {
        for (const auto& [varying, fixed] : kVarying) {
            line = std::regex_replace(line, varying, fixed);
        }
        const bool isComplaint = line.front() > '4' ||
                                 line.find("-- failed!") != std::string::npos ||
                                 line.find(",1) return 0") != std::string::npos;
        complaints += isComplaint && line.find(" DE N ") == 1 ? line + "\n" : "";
    }
    return complaints;
}

// The limit is on the numbers of descriptors, and the lowest free number is always taken first.
void setFullDescriptorTable(bool on) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    if (on) {
        const int lowest = open("/dev/null", O_RDONLY | O_CLOEXEC);
        close(lowest);
        limit.rlim_cur = static_cast<rlim_t>(lowest);
    }
    setrlimit(RLIMIT_NOFILE, &limit);
}

void setNoThreads(bool on) {
    static constexpr size_t kUsualStack = size_t{8} << 20;
    static constexpr size_t kHugeStack = size_t{1} << 47;  // No machine has room for it.
    pthread_attr_t attributes;
    pthread_getattr_default_np(&attributes);
    pthread_attr_setstacksize(&attributes, on ? kHugeStack : kUsualStack);
    pthread_setattr_default_np(&attributes);
}

}  // namespace fault
