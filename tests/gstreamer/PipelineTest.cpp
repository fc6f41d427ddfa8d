// SPDX-License-Identifier: Apache-2.0
// Pipelines with the element as a user starts them: gst-launch-1.0 beside the sample service, with
// the sample processing library.
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>

#include "demo/ProgramRun.h"

namespace {

namespace fs = std::filesystem;

constexpr char kLauncher[] = "/usr/bin/gst-launch-1.0";

/** What a pipeline needs to find, and a line of the log for each frame. */
Strings environment(const std::string& more = "") {
    const fs::path folder = fs::path(PLUGIN_FILE).parent_path();
    // The launcher is not built with the sanitizer whose runtime the plugin needs.
    const std::string runtime = SANITIZER_RUNTIME;
    return words("GST_DEBUG=displayenhance:6 GST_DEBUG_NO_COLOR=1 GST_PLUGIN_PATH=" +
                 folder.string() + " GST_REGISTRY=" + (folder / "test-registry.bin").string() +
                 " LD_LIBRARY_PATH=" + (kDemo / "processing").string() + " " + more +
                 (runtime.empty() ? "" : " ASAN_OPTIONS=detect_leaks=0 LD_PRELOAD=" + runtime));
}

/** The outcome of each frame, by the element's log. */
Strings outcomesIn(const std::string& log) {
    static const std::regex line("<displayenhance0> ([a-z-]+) after");
    return {std::sregex_token_iterator(log.begin(), log.end(), line, 1), {}};
}

std::string content(const fs::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(PipelineTest, TheEnhancedFramesDifferAndNoOthersAndNoOtherBranch) {
    const char* const patient = "--abort-ms 60000 --overload-ms 60000";
    const struct {
        const char* service; /**< Its arguments; null for none. */
        const char* environment;
        const char* outcome; /**< Of the first frame. */
        bool isWarned;
    } cases[] = {
        {patient, "", "processed", false},
        {"--abort-ms 40 --overload-ms 33", "AISR_SAMPLE_SLOW_MS=60", "expired", false},
        {patient, "LD_LIBRARY_PATH=/nowhere", "refused-not-ready", true},
        {nullptr, "", "not-offered", true},
    };
    const fs::path folder = std::getenv("DISPLAYENGINE_RUNTIME_DIR");
    const std::string line =
        "videotestsrc pattern=pinwheel num-buffers=40 !"
        " video/x-raw,format=NV12,width=640,height=520,framerate=25/1 ! tee name=t"
        " t. ! queue ! filesink location=" +
        (folder / "plain").string() +
        " t. ! queue ! displayenhance ! filesink location=" + (folder / "enhanced").string();
    for (const auto& c : cases) {
        const auto service =
            c.service == nullptr ? nullptr : std::make_unique<Service>(words(c.service));
        const ProgramRun run(kLauncher, words(line), environment(c.environment));
        EXPECT_EQ(run.code, 0) << run.error;
        const size_t warning = run.output.find("WARNING: from element");
        EXPECT_EQ(warning != std::string::npos, c.isWarned) << run.error;
        const std::string plain = content(folder / "plain");
        const std::string enhanced = content(folder / "enhanced");
        constexpr size_t kSize = 640 * 520 * 3 / 2;
        ASSERT_EQ(plain.size(), 40 * kSize);
        ASSERT_EQ(enhanced.size(), plain.size());
        const Strings outcomes = outcomesIn(run.error);
        ASSERT_EQ(outcomes.size(), 40U);
        EXPECT_EQ(outcomes.front(), c.outcome);
        for (size_t i = 0; i < 40; ++i) {
            const bool isChanged = plain.compare(i * kSize, kSize, enhanced, i * kSize, kSize) != 0;
            EXPECT_EQ(isChanged, outcomes[i] == "processed") << i;
        }
    }
}

TEST(PipelineTest, GoesOnWhenTheServiceIsKilledAndThroughChangesOfTheSize) {
    Service service(words("--abort-ms 60000 --overload-ms 60000 --monitor-frames 1000000"));
    ChildProcess pipeline(
        kLauncher,
        words("-v concat name=c ! displayenhance ! fakesink silent=false sync=false"
              " videotestsrc num-buffers=10 ! video/x-raw,format=NV12,width=721,height=577 ! c."
              " videotestsrc num-buffers=10 ! video/x-raw,format=NV12,width=320,height=240 ! c."
              " videotestsrc num-buffers=10 is-live=true !"
              " video/x-raw,format=NV12,width=853,height=601 ! c."),
        environment());
    const auto waitFor = [&pipeline](const std::string& part) {
        std::optional<std::string> line = pipeline.readLine();
        while (line && line->find(part) == std::string::npos) {
            line = pipeline.readLine();
        }
        EXPECT_TRUE(line.has_value()) << part << "\n" << pipeline.standardError();
    };
    for (const int bytes : {724 * 578 * 3 / 2, 320 * 240 * 3 / 2, 856 * 602 * 3 / 2}) {
        waitFor("(" + std::to_string(bytes) + " bytes");
    }
    service.kill();
    waitFor("Got EOS from element");
    EXPECT_EQ(pipeline.wait(), 0) << pipeline.standardError();
    const Strings outcomes = outcomesIn(pipeline.standardError());
    EXPECT_EQ(outcomes.size(), 30U);
    EXPECT_EQ(std::count(outcomes.begin(), outcomes.end(), "not-offered"), 10);
    EXPECT_GE(std::count(outcomes.begin(), outcomes.end(), "processed"), 11);
}

}  // namespace
