#include "support/FaultInjection.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <iterator>
#include <thread>

namespace fault {

namespace {

size_t countFiles(const std::string& directory) {
    const std::filesystem::directory_iterator files(directory);
    return static_cast<size_t>(std::distance(begin(files), end(files)));
}

rlim_t exchangeLimit(rlim_t value) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t usual = limit.rlim_cur;
    limit.rlim_cur = value;
    setrlimit(RLIMIT_NOFILE, &limit);
    return usual;
}

}  // namespace

std::string holdings() {
    return std::to_string(descriptors()) + " descriptors, " +
           std::to_string(countFiles("/proc/self/task")) + " threads";
}

bool returnsTo(const std::string& before) {
    const std::time_t deadline = std::time(nullptr) + 10;
    while (holdings() != before && std::time(nullptr) < deadline) {
        std::this_thread::yield();
    }
    return holdings() == before;
}

size_t descriptors(const std::string& process) {
    return countFiles("/proc/" + process + "/fd");
}

// The limit is on the numbers of descriptors, and the lowest free number is always taken first.
FullDescriptorTable::FullDescriptorTable(int spare) {
    const int lowest = open("/dev/null", O_RDONLY | O_CLOEXEC);
    close(lowest);
    mUsual = exchangeLimit(static_cast<rlim_t>(lowest + spare));
}

FullDescriptorTable::~FullDescriptorTable() {
    exchangeLimit(mUsual);
}

// No machine has room for such a stack.
NoThreads::NoThreads() {
    pthread_attr_t huge;
    pthread_getattr_default_np(&mUsual);
    pthread_getattr_default_np(&huge);
    pthread_attr_setstacksize(&huge, size_t{1} << 47);
    pthread_setattr_default_np(&huge);
}

NoThreads::~NoThreads() {
    pthread_setattr_default_np(&mUsual);
}

}  // namespace fault
