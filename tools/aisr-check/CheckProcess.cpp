// SPDX-License-Identifier: Apache-2.0
#include "CheckProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "Library.h"

namespace checker {
namespace {

constexpr char kLibraryName[] = "libAISRProcess_interface.so";
constexpr std::chrono::milliseconds kPoll(2);

void mustBe(bool isSo, const char* what) {
    if (!isSo) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/** Starts the program with `state` as its only further descriptor; returns its id. */
pid_t spawn(std::vector<std::string> command, int state, bool isVerbose) {
    std::vector<char*> words(command.size() + 1, nullptr);
    std::transform(command.begin(), command.end(), words.begin(),
                   [](std::string& word) { return word.data(); });
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, state, kStateDescriptor);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (!isVerbose) {
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    pid_t process = -1;
    errno = posix_spawnp(&process, words.front(), &actions, nullptr, words.data(), environ);
    const int error = errno;
    posix_spawn_file_actions_destroy(&actions);
    errno = error;
    mustBe(error == 0, words.front());
    return process;
}

/** Waits for the process, and ends it when nothing happens there; what went wrong, or empty. */
std::string follow(pid_t process, const SharedState& state, double hangMs, const StopSignal& stop) {
    int status = 0;
    uint32_t progress = state.progress;
    Stopwatch sinceProgress;
    while (waitpid(process, &status, WNOHANG) == 0) {
        if (stop.waitUntil(std::chrono::steady_clock::now() + kPoll)) {
            kill(process, SIGKILL);
        } else if (state.progress != progress) {
            progress = state.progress;
            sinceProgress = {};
        } else if (sinceProgress.milliseconds() >= hangMs) {
            const std::string places = describePlaces(state);
            kill(process, SIGKILL);
            waitpid(process, &status, 0);
            return places + ": has not returned after " + oneDecimal(hangMs / 1000) + " s";
        }
    }
    // A terminal sends its signal to both processes.
    if (stop.waitUntil({})) {
        throw std::runtime_error("interrupted");
    }
    if (WIFSIGNALED(status)) {
        return describeDeath(state, WTERMSIG(status));
    }
    return state.isDone && WEXITSTATUS(status) == 0
               ? ""
               : describePlaces(state) + ": the process was ended with exit code " +
                     std::to_string(WEXITSTATUS(status));
}

void takeReport(const SharedState& state, Outcome* outcome) {
    const size_t size = std::min(state.reportSize.load(), sizeof state.report);
    std::istringstream lines(std::string(state.report, size));
    for (std::string line; std::getline(lines, line);) {
        const auto document = nlohmann::json::parse(line, nullptr, false);
        if (!document.is_object() || document.empty()) {
            continue;  // cut off by a crash
        }
        const std::string& kind = document.begin().key();
        if (kind == "times") {
            outcome->times.push_back(document.begin()->get<SizeTimes>());
        } else {
            auto& texts = kind == "fail"   ? outcome->failures
                          : kind == "warn" ? outcome->warnings
                                           : outcome->notes;
            texts.push_back(document.begin()->get<std::string>());
        }
    }
}

}  // namespace

CheckStarter::CheckStarter(const Settings& settings, const std::vector<std::string>& command)
    : mSettings(settings),
      mCommand(command),
      mFolder(std::filesystem::temp_directory_path() / "aisr-check-XXXXXX") {
    // The folder goes at the end, also when nobody reads what is printed.
    std::signal(SIGPIPE, SIG_IGN);
    mustBe(mkdtemp(mFolder.data()) != nullptr, "temporary folder");
    // A library that has the name already is found where it is, with what lies beside it.
    const std::filesystem::path library = settings.library;
    std::string path = library.parent_path();
    if (library.filename() != kLibraryName) {
        std::filesystem::create_symlink(library, mFolder + "/" + kLibraryName);
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
    const int memory = memfd_create("aisr-check", MFD_CLOEXEC);
    mustBe(memory >= 0 && ftruncate(memory, sizeof(SharedState)) == 0, "shared memory");
    const auto unmap = [](SharedState* state) { munmap(state, sizeof *state); };
    const std::unique_ptr<SharedState, decltype(unmap)> state(new (mapState(memory)) SharedState,
                                                              unmap);
    std::vector<std::string> command = mCommand;
    command.insert(command.end(), {"--run-check", check.name});
    const pid_t process = spawn(command, memory, mSettings.isVerbose);
    close(memory);
    const std::string end = follow(process, *state, 1000 * mSettings.hangSeconds, mStop);
    takeReport(*state, &outcome);
    if (!end.empty()) {
        outcome.failures.push_back(end);
    }
    outcome.result = !outcome.failures.empty()   ? Result::kFail
                     : !outcome.warnings.empty() ? Result::kWarn
                                                 : Result::kOk;
    outcome.seconds = stopwatch.milliseconds() / 1000;
    return outcome;
}

int runCheckHere(const std::string& name, const Settings& settings) {
    const auto check = std::find_if(kChecks.begin(), kChecks.end(),
                                    [&](const Check& one) { return one.name == name; });
    if (check == kChecks.end()) {
        return EXIT_FAILURE;
    }
    std::signal(SIGPIPE, SIG_DFL);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    useState(mapState(kStateDescriptor));
    close(kStateDescriptor);
    check->run(settings);
    finish();
    if (!check->endsByExit) {
        _exit(EXIT_SUCCESS);
    }
    return EXIT_SUCCESS;
}

}  // namespace checker
