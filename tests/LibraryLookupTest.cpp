// Where the processing library is looked for, and what is required of it.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "aisr/AisrAlgorithm.h"
#include "support/LogCapture.h"
#include "support/ProcessingLibrary.h"

namespace {

/** What the loader answers: for each path a handle, or the error that the next dlerror() gives. */
struct Answer {
    const char* error;  ///< Null with a null handle: the loader has no text.
    bool isFound;
};

std::map<std::string, Answer> gAnswers;
std::vector<std::string> gTried;
const char* gError = nullptr;
bool gIsScripted = false;

constexpr const char* kBareName = "libAISRProcess_interface.so";
constexpr const char* kFullPath = "/system/lib64/libAISRProcess_interface.so";

}  // namespace

// The client library's calls of the loader come here instead of to the platform.
extern "C" void* __wrap_dlopen(const char* path, int flags) {
    EXPECT_EQ(flags, RTLD_NOW);
    gTried.emplace_back(path);
    if (gIsScripted) {
        const Answer answer = gAnswers.at(path);
        gError = answer.error;
        return answer.isFound ? dlopen(nullptr, RTLD_NOW) : nullptr;
    }
    const std::string root = getenv("DISPLAYENGINE_SYSTEM_ROOT");
    return path == std::string(kFullPath) ? dlopen((root + path).c_str(), flags) : nullptr;
}

extern "C" char* __wrap_dlerror() {
    if (gIsScripted) {
        return const_cast<char*>(std::exchange(gError, nullptr));
    }
    static char missing[] = "not found";
    char* error = dlerror();
    return error == nullptr ? missing : error;
}

namespace {

TEST(LibraryLookup, TriesTheSystemFolderOnlyForALibraryThatIsNotFound) {
    const struct {
        const char* name;
        Answer bare;
        Answer full;
        std::vector<std::string> tried;
        std::string warning;
    } cases[] = {
        {"found under its bare name", {nullptr, true}, {nullptr, true}, {kBareName}, ""},
        {"found in the system folder",
         {"dlopen failed: library \"x\" not found", false},
         {nullptr, true},
         {kBareName, kFullPath},
         ""},
        {"a text that is only the end",
         {"not found", false},
         {nullptr, true},
         {kBareName, kFullPath},
         ""},
        {"missing in both places",
         {"dlopen failed: not found", false},
         {"no such library", false},
         {kBareName, kFullPath},
         std::string("openLibrary:#: Can't open library '") + kFullPath + "' - no such library"},
        {"found but not to be loaded",
         {"bad ELF magic", false},
         {nullptr, true},
         {kBareName},
         std::string("openLibrary:#: Can't open library '") + kBareName + "' - bad ELF magic"},
        {"a text with words behind",
         {"not found.", false},
         {nullptr, true},
         {kBareName},
         std::string("openLibrary:#: Can't open library '") + kBareName + "' - not found."},
        {"too short a text",
         {"ot found", false},
         {nullptr, true},
         {kBareName},
         std::string("openLibrary:#: Can't open library '") + kBareName + "' - ot found"},
        {"no text at all",
         {nullptr, false},
         {nullptr, true},
         {kBareName},
         std::string("openLibrary:#: Can't open library '") + kBareName + "' - "},
    };
    gIsScripted = true;
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.name);
        LogCapture log;
        gAnswers = {{kBareName, expected.bare}, {kFullPath, expected.full}};
        gTried.clear();
        AisrAlgorithm algorithm;
        EXPECT_EQ(algorithm.init(), -1) << "this program has no entry points";
        EXPECT_EQ(gTried, expected.tried);
        const std::string path = expected.tried.back();
        EXPECT_EQ(log.last("Can't open"),
                  expected.warning.empty() ? "" : "5 DE N AISRAlgo " + expected.warning);
        EXPECT_EQ(log.count("Failed to locate AisrInit in '" + path + "' - "),
                  expected.warning.empty() ? 1U : 0U)
            << "the library that was opened is named by the path last tried";
    }
    gIsScripted = false;
}

TEST(LibraryLookup, RequiresEveryEntry) {
    const struct {
        const char* build;
        std::string missing;
    } cases[] = {
        {"without_init", "AisrInit"},         {"without_deinit", "AisrDeinit"},
        {"without_process", "AisrProcess"},   {"without_doclean", "AisrDoClean"},
        {"without_getparam", "AisrGetParam"}, {"without_setparam", "AisrSetParam"},
    };
    LogCapture log;
    AisrAlgorithm algorithm;
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.build);
        processing::use(expected.build);
        log.take();
        EXPECT_EQ(algorithm.init(), -1);
        EXPECT_EQ(log.count("5 DE N AISRAlgo loadLibrary:#: Failed to locate " + expected.missing +
                            " in '" + kFullPath + "' - "),
                  1U);
        EXPECT_EQ(log.last("Unload"), "4 DE N AISRAlgo unloadLibrary:#: Unload library.");
        EXPECT_EQ(algorithm.deinit(), -1);
        const std::string file = getenv("DISPLAYENGINE_SYSTEM_ROOT") + std::string(kFullPath);
        EXPECT_EQ(dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "it was closed";
    }
    processing::use("without_nothing");
    EXPECT_EQ(algorithm.init(), 0) << "an earlier failure is not remembered";
}

}  // namespace
