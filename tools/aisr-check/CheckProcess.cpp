// SPDX-License-Identifier: Apache-2.0
#include "CheckProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "Library.h"

namespace checker {
namespace {

constexpr char kLibraryName[] = "libAISRProcess_interface.so";
/** Out of the way of the numbers that a check's process is given. */
constexpr int kLeastDescriptor = 10;
constexpr int kPollMs = 50;

std::system_error systemError(const char* what) {
    return {errno, std::generic_category(), what};
}

/** A descriptor that is closed at the end of its scope. */
class Descriptor {
public:
    explicit Descriptor(int number) : mNumber(fcntl(number, F_DUPFD_CLOEXEC, kLeastDescriptor)) {
        close(number);
        if (mNumber < 0) {
            throw systemError("descriptor");
        }
    }
    ~Descriptor() { close(mNumber); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return mNumber; }

private:
    const int mNumber;
};

SharedState* mapState(int descriptor) {
    void* memory =
        mmap(nullptr, sizeof(SharedState), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED) {
        throw systemError("shared memory");
    }
    return static_cast<SharedState*>(memory);
}

/** Adds the lines that are complete, and leaves the rest. */
void takeLines(std::string* unread, Outcome* outcome) {
    size_t end = 0;
    while ((end = unread->find('\n')) != std::string::npos) {
        const auto line = nlohmann::json::parse(unread->substr(0, end), nullptr, false);
        unread->erase(0, end + 1);
        if (!line.is_object() || line.empty()) {
            continue;
        }
        const std::string& kind = line.begin().key();
        const nlohmann::json& value = line.begin().value();
        if (kind == "times") {
            outcome->times.push_back(value.get<SizeTimes>());
        } else {
            auto& texts = kind == "fail"   ? outcome->failures
                          : kind == "warn" ? outcome->warnings
                                           : outcome->notes;
            texts.push_back(value.get<std::string>());
        }
    }
}

/** Kills the process when nothing has happened in it for too long. */
class HangGuard {
public:
    HangGuard(const SharedState& state, pid_t process, double seconds)
        : mState(state), mProcess(process), mLimitMs(1000 * seconds) {}

    void look() {
        if (mState.progress != mProgress) {
            mProgress = mState.progress;
            mSince = {};
        } else if (!mHasHung && mSince.milliseconds() >= mLimitMs) {
            mHasHung = true;
            mPlaces = describePlaces(mState);
            kill(mProcess, SIGKILL);
        }
    }
    bool hasHung() const { return mHasHung; }
    std::string text() const {
        return (mPlaces.empty() ? "the check" : mPlaces) + ": has not returned after " +
               oneDecimal(mLimitMs / 1000) + " s";
    }

private:
    const SharedState& mState;
    const pid_t mProcess;
    const double mLimitMs;
    uint32_t mProgress = 0;
    Stopwatch mSince;
    bool mHasHung = false;
    std::string mPlaces;
};

/** Reads the reports until the process has ended; returns its wait status. */
int follow(pid_t process, int reports, HangGuard* guard, Outcome* outcome) {
    std::string unread;
    int status = 0;
    bool isOpen = true;
    for (;;) {
        // A process that the library has started may keep the pipe open.
        pollfd waited = {reports, POLLIN, 0};
        const int ready = isOpen ? poll(&waited, 1, kPollMs) : usleep(1000);
        char part[4096];
        const ssize_t size = ready > 0 ? read(reports, part, sizeof part) : -1;
        isOpen = isOpen && (ready <= 0 || size > 0);
        if (size > 0) {
            unread.append(part, static_cast<size_t>(size));
            takeLines(&unread, outcome);
            continue;
        }
        if (waitpid(process, &status, WNOHANG) == process) {
            return status;
        }
        guard->look();
    }
}

/** The failure that the end of the process is, or an empty text. */
std::string judgeEnd(const SharedState& state, int status) {
    if (WIFSIGNALED(status)) {
        return describeDeath(state, WTERMSIG(status));
    }
    const bool isDone = state.isDone && WEXITSTATUS(status) == 0;
    if (isDone) {
        return "";
    }
    const std::string places = describePlaces(state);
    return (places.empty() ? "the check" : places) + ": the process was ended with exit code " +
           std::to_string(WEXITSTATUS(status));
}

}  // namespace

CheckStarter::CheckStarter(const Settings& settings, std::vector<std::string> command)
    : mSettings(settings), mCommand(std::move(command)) {
    std::string name = std::filesystem::temp_directory_path() / "aisr-check-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        throw systemError("temporary folder");
    }
    mFolder = name;
    // A library that has the name already is found where it is, with what lies beside it.
    const std::filesystem::path library = settings.library;
    std::string path = library.parent_path();
    if (library.filename() != kLibraryName) {
        std::filesystem::create_symlink(library, std::filesystem::path(mFolder) / kLibraryName);
        path = mFolder;
    }
    if (const char* before = std::getenv("LD_LIBRARY_PATH"); before != nullptr) {
        path += std::string(":") + before;
    }
    setenv("LD_LIBRARY_PATH", path.c_str(), 1);
    // The checks' service is not to meet one of the machine's.
    setenv("DISPLAYENGINE_RUNTIME_DIR", (mFolder + "/run").c_str(), 1);
}

CheckStarter::~CheckStarter() {
    std::error_code error;
    std::filesystem::remove_all(mFolder, error);
}

Outcome CheckStarter::run(const Check& check) const {
    Outcome outcome;
    outcome.check = &check;
    const Stopwatch stopwatch;
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw systemError("pipe");
    }
    const Descriptor reports(ends[0]);
    auto written = std::make_unique<Descriptor>(ends[1]);
    const Descriptor memory(memfd_create("aisr-check", MFD_CLOEXEC));
    if (ftruncate(memory.get(), sizeof(SharedState)) != 0) {
        throw systemError("shared memory");
    }
    SharedState& state = *new (mapState(memory.get())) SharedState;

    std::vector<std::string> command = mCommand;
    command.insert(command.end(), {"--run-check", check.name});
    std::vector<char*> words(command.size() + 1, nullptr);
    std::transform(command.begin(), command.end(), words.begin(),
                   [](std::string& word) { return word.data(); });
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const int output = mSettings.isVerbose ? STDERR_FILENO : -1;
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    for (const int number : {STDOUT_FILENO, STDERR_FILENO}) {
        output >= 0 ? posix_spawn_file_actions_adddup2(&actions, output, number)
                    : posix_spawn_file_actions_addopen(&actions, number, "/dev/null", O_WRONLY, 0);
    }
    posix_spawn_file_actions_adddup2(&actions, written->get(), kReportDescriptor);
    posix_spawn_file_actions_adddup2(&actions, memory.get(), kStateDescriptor);
    pid_t process = -1;
    errno = posix_spawnp(&process, words.front(), &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (errno != 0) {
        throw systemError(words.front());
    }
    written.reset();
    HangGuard guard(state, process, mSettings.hangSeconds);
    const int status = follow(process, reports.get(), &guard, &outcome);
    const std::string end = guard.hasHung() ? guard.text() : judgeEnd(state, status);
    if (!end.empty()) {
        outcome.failures.push_back(end);
    }
    munmap(&state, sizeof(state));
    outcome.result = !outcome.failures.empty()   ? Result::kFail
                     : !outcome.warnings.empty() ? Result::kWarn
                                                 : Result::kOk;
    outcome.seconds = stopwatch.milliseconds() / 1000;
    return outcome;
}

int runCheckHere(const std::string& name, const Settings& settings) {
    const std::vector<Check>& checks = allChecks();
    const auto check = std::find_if(checks.begin(), checks.end(),
                                    [&](const Check& one) { return one.name == name; });
    if (check == checks.end()) {
        return EXIT_FAILURE;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int number : {kReportDescriptor, kStateDescriptor}) {
        fcntl(number, F_SETFD, FD_CLOEXEC);
    }
    useSharedState(mapState(kStateDescriptor));
    check->run(settings);
    if (!check->endsByExit) {
        stop();
    }
    sharedState().isDone = true;
    return EXIT_SUCCESS;
}

}  // namespace checker
