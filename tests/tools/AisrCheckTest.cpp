// SPDX-License-Identifier: Apache-2.0
// The compliance checker: sound libraries pass, and each fault is found by the check that is meant
// to find it and by no failure of another.
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <map>
#include <nlohmann/json.hpp>

#include "demo/ProgramRun.h"

namespace {

const std::filesystem::path kBuild = kDemo.parent_path();
const std::string kChecker = kBuild / "tools/aisr-check/aisr-check";
const std::string kSample = kBuild / "demo/processing/libAISRProcess_interface.so";
const std::string kTemplate = kBuild / "tools/template/libAISRProcess_interface.so";

std::string faulty(const std::string& build) {
    return kBuild / "tests/tools" / ("lib" + build + ".so");
}

/** Whether programs of another machine run, by an emulator. */
bool isEmulated() {
    return std::getenv("DISPLAYENGINE_EMULATOR") != nullptr &&
           *std::getenv("DISPLAYENGINE_EMULATOR") != '\0';
}

ProgramRun check(const std::string& library, Strings arguments, const std::string& fault = "") {
    arguments.insert(arguments.end(), {library, "--quick", "--seconds", "0.1"});
    if (isEmulated()) {
        arguments.insert(arguments.end(), {"--wrapper", std::getenv("DISPLAYENGINE_EMULATOR")});
    }
    return {kChecker, arguments, {"FAULT=" + fault}};
}

/** The line of each check, by the check's name. */
std::map<std::string, std::string> linesOf(const ProgramRun& run) {
    std::map<std::string, std::string> lines;
    std::istringstream output(run.output);
    for (std::string line; std::getline(output, line);) {
        const Strings start = words(line.substr(0, 40));
        if (start.size() >= 2 && start[1].find('.') != std::string::npos) {
            lines[start[1]] = line;
        }
    }
    return lines;
}

void expectNoFailure(const ProgramRun& run, const std::string& butFor = "") {
    for (const auto& [name, line] : linesOf(run)) {
        if (name != butFor) {
            EXPECT_NE(line.substr(0, 4), "FAIL") << line;
        }
    }
}

struct Fault {
    const char* name;   /**< Of the fault, or of the build behind a colon. */
    const char* result; /**< "FAIL" or "WARN" */
    const char* check;
    const char* words; /**< The reason has them. */
};

constexpr Fault kFaults[] = {
    {":AisrUndefined", "FAIL", "loading.open", "aisrModel"},
    {":AisrMissing", "FAIL", "loading.entries", "AisrGetParam is not exported"},
    {":AisrData", "FAIL", "loading.entries", "AisrDoClean is not a function"},
    {":AisrExtra", "WARN", "loading.exports", "also exports aisrHelper"},
    {"level-refused", "WARN", "init.level", "with 3 returned AISR_ERR_FATAL(1)"},
    {"init-once", "FAIL", "init.repeat", "AISR_ERR_FATAL(1), initialisation 2"},
    {"exit", "FAIL", "frames.first",
     "AisrProcess, frame 0, 1280x720, stride 1344: the process was ended with exit code 0"},
    {"exception", "FAIL", "frames.first", "an exception left the entry (no model)"},
    {"crash", "FAIL", "frames.first", "SIGSEGV at address 0x0 in AisrProcess, frame 0"},
    {"abort", "FAIL", "frames.first", "SIGABRT in another thread (during AisrProcess, frame 0, "},
    {"hang", "FAIL", "frames.first", "AisrProcess, frame 0, 1280x720, stride 1344: has not ret"},
    {"thread-local", "FAIL", "frames.context", "on another thread than AisrInit, returned AISR_E"},
    {"record-changed", "FAIL", "records.kept", "changed the node at offset 44"},
    {"list-kept", "FAIL", "records.kept", "byte 16 of the list, which was no longer"},
    {"tags-obeyed", "WARN", "records.unknown", "AisrSetParam takes AISR_TAG_NEW_MEM with 24 by"},
    {"sizes-obeyed", "FAIL", "records.unknown", "behind the parameter"},
    {"unknown-status", "WARN", "status.names", "cancelled frame returned 7, which is no status"},
    {"first-size", "FAIL", "frames.sizes", "an exception left the entry"},
    {"random", "WARN", "frames.same", "comes out differently from stream 1's, 768x576"},
    {"overrun", "FAIL", "planes.bounds",
     "wrote 1 byte behind the chroma plane, 1280x720, stride 1"},
    {"underrun", "FAIL", "planes.bounds", "wrote 1 byte in front of the luma plane"},
    {"read-behind", "FAIL", "planes.bounds", "byte 1 behind the luma plane"},
    {"padding", "FAIL", "planes.padding", "luma plane, row 0, column 1280"},
    {"late-write", "FAIL", "planes.return", "of the luma plane, which was no longer"},
    {"cancel-blocks", "FAIL", "cancel.returns", " ms or more, "},
    {"cancel-waits", "FAIL", "cancel.returns", "waits for the frame in processing"},
    {"cancel-ignored", "WARN", "cancel.ends", "ended with AISR_SUCCESS each time"},
    {"cancel-any", "FAIL", "cancel.names", "AISR_ERR_TIMEOUT(3)"},
    {"cancel-sticks", "FAIL", "cancel.names", "after one that was cancelled before"},
    {"deinit-after-cancel", "FAIL", "cancel.deinit", "AisrDeinit returned AISR_ERR_FATAL(1)"},
    {"thread-stays", "FAIL", "unload.threads", "threads of the library are left: 1"},
    {"unload", "FAIL", "unload.really", "SIGABRT in the closing of the library"},
    {"leak", "FAIL", "growth.frames", "the heap, in bytes, grew by"},
    {"leak-mapping", "FAIL", "growth.frames", "the number of mappings grew by"},
    {"leak-descriptor", "FAIL", "growth.frames", "open descriptors grew by 4 in 400 frames"},
    {"slow", "WARN", "times.sizes", "1280x720, stride 1344: at 30 fps "},
};

ProgramRun runFaulty(const Fault& fault) {
    const std::string name = fault.name;
    const bool isBuild = name[0] == ':';
    return check(faulty(isBuild ? name.substr(1) : "AisrFaulty"),
                 name == "hang" ? words("--hang-seconds 2") : Strings{}, isBuild ? "" : name);
}

void judge(const Fault& fault, const ProgramRun& run) {
    SCOPED_TRACE(fault.name);
    const auto lines = linesOf(run);
    ASSERT_EQ(lines.count(fault.check), 1U) << run.output << run.error;
    const std::string& line = lines.at(fault.check);
    EXPECT_EQ(line.substr(0, 4), fault.result) << line;
    EXPECT_NE(line.find(fault.words), std::string::npos) << line;
    expectNoFailure(run, fault.check);
    EXPECT_EQ(run.code, std::string(fault.result) == "FAIL" ? 1 : 0);
}

/** Faults that are looked for side by side: the checks wait more than they compute. */
constexpr size_t kGroup = 4;

class AisrCheckFaultTest : public testing::TestWithParam<size_t> {};

TEST_P(AisrCheckFaultTest, IsFoundByTheCheckThatIsMeantTo) {
    std::vector<std::pair<Fault, std::future<ProgramRun>>> runs;
    for (size_t i = GetParam(); i < std::min(GetParam() + kGroup, std::size(kFaults)); ++i) {
        // What is the same on every processor takes too long in the emulator.
        const Strings ofTheProcessor = words("exit exception crash overrun read-behind");
        if (!isEmulated() ||
            std::count(ofTheProcessor.begin(), ofTheProcessor.end(), kFaults[i].name) > 0) {
            runs.emplace_back(kFaults[i],
                              std::async(std::launch::async, runFaulty, std::cref(kFaults[i])));
        }
    }
    for (auto& [fault, run] : runs) {
        judge(fault, run.get());
    }
}

INSTANTIATE_TEST_SUITE_P(From, AisrCheckFaultTest,
                         testing::Range(size_t{0}, std::size(kFaults), kGroup));

TEST(AisrCheckTest, SoundLibrariesPass) {
    for (const std::string& library : {kSample, kTemplate, faulty("AisrFaulty")}) {
        if (std::filesystem::exists(library)) {
            SCOPED_TRACE(library);
            const ProgramRun run = check(library, {});
            expectNoFailure(run);
            EXPECT_EQ(run.code, 0) << run.output << run.error;
            EXPECT_NE(run.output.find("30 checks"), std::string::npos) << run.output;
        }
    }
}

TEST(AisrCheckTest, PrintsJsonAndAPicture) {
    const std::string picture = testing::TempDir() + "aisr-check-times.png";
    Strings arguments = {"--json", "--filter", "^(times|frames.f)"};
    if (!isEmulated()) {  // which has no gnuplot
        arguments.insert(arguments.end(), {"--times", picture});
    }
    const ProgramRun run = check(kSample, arguments);
    EXPECT_EQ(run.code, 0) << run.error;
    const auto document = nlohmann::json::parse(run.output);
    EXPECT_EQ(document["checks"].size(), 2U);
    EXPECT_EQ(document["checks"][0]["name"], "frames.first");
    EXPECT_EQ(document["times"].size(), 5U);
    EXPECT_GT(document["times"][3]["median"], 0);
    EXPECT_EQ(document["summary"]["FAIL"], 0);
    EXPECT_NE(std::filesystem::remove(picture), isEmulated());
}

TEST(AisrCheckTest, WrongUsageIsOneLineAndTwo) {
    const struct {
        const char* arguments;
        const char* reason;
    } cases[] = {
        {"", "LIBRARY is required"},
        {"/no/such/file", "no such file: /no/such/file"},
        {"/dev/null --filter [", "'[' is no pattern"},
        {"/bin/sh --filter nothing", "no check has such a name"},
        {"/bin/sh --overload-ms 41", "above --abort-ms"},
        {"/bin/sh --bogus", "--bogus"},
    };
    for (const auto& c : cases) {
        ProgramRun(kChecker, words(c.arguments)).expectFailure(2, c.reason);
    }
    EXPECT_EQ(ProgramRun(kChecker, {"--version"}).output.rfind("aisr-check ", 0), 0U);
    EXPECT_NE(ProgramRun(kChecker, {"--list"}).output.find("planes.bounds"), std::string::npos);
}

}  // namespace
