// SPDX-License-Identifier: Apache-2.0
// Where the processing library is looked for. What a library is required to have, and what comes of
// one that has it not, the faults of the library tell.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "aisr/AisrAlgorithm.h"
#include "support/LogCapture.h"

namespace {

/** The loader's answer for a library that is there; any other is the text of its failure. */
constexpr const char* kFound = "found";
constexpr const char* kNoText = nullptr;

std::map<std::string, const char*> gAnswers;
std::vector<std::string> gTried;
const char* gError = nullptr;

constexpr const char* kBareName = "libAISRProcess_interface.so";
constexpr const char* kFullPath = "/system/lib64/libAISRProcess_interface.so";

}  // namespace

// The client library's calls of the loader come here instead of to the platform.
extern "C" void* __wrap_dlopen(const char* path, int flags) {
    EXPECT_EQ(flags, RTLD_NOW);
    gTried.emplace_back(path);
    gError = gAnswers.at(path);
    return gError == kFound ? dlopen(nullptr, flags) : nullptr;
}

extern "C" char* __wrap_dlerror() {
    return const_cast<char*>(std::exchange(gError, nullptr));
}

namespace {

TEST(LibraryLookupTest, TriesTheSystemFolderOnlyForALibraryThatIsNotFound) {
    const struct {
        const char* bare;
        const char* full;
        const char* tried;  /**< Last, and so named by the messages. */
        const char* reason; /**< Of the failure; null when the library is opened. */
    } cases[] = {
        {kFound, kFound, kBareName, nullptr},
        {"not found", kFound, kFullPath, nullptr},
        {"dlopen failed: not found", "no such library", kFullPath, "no such library"},
        {"not found.", kFound, kBareName, "not found."},
        {"ot found", kFound, kBareName, "ot found"},
        {kNoText, kFound, kBareName, ""},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(testing::PrintToString(expected.bare));
        LogCapture log;
        gAnswers = {{kBareName, expected.bare}, {kFullPath, expected.full}};
        gTried.clear();
        AisrAlgorithm algorithm;
        EXPECT_EQ(algorithm.init(), -1) << "this program has no entry points";
        EXPECT_EQ(gTried.front(), kBareName);
        EXPECT_EQ(gTried.back(), expected.tried);
        const std::string path = expected.tried;
        if (expected.reason != nullptr) {
            EXPECT_EQ(log.last(""), "5 DE N AISRAlgo openLibrary:#: Can't open library '" + path +
                                        "' - " + expected.reason);
        } else {
            EXPECT_EQ(log.count("Failed to locate AisrInit in '" + path + "' - "), 1U);
        }
    }
}

}  // namespace
