// SPDX-License-Identifier: Apache-2.0
// Pipelines with the element as a user starts them: gst-launch-1.0 beside the sample service, with
// the sample processing library.
#include <csignal>
#include <cstdlib>
#include <fstream>
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

long count(const std::string& text, const std::string& pattern) {
    const std::regex regex(pattern);
    return std::distance(std::sregex_iterator(text.begin(), text.end(), regex), {});
}

TEST(PipelineTest, TheEnhancedFramesDifferAndNoOthersAndNoOtherBranch) {
    const char* const patient = "--abort-ms 60000 --overload-ms 60000";
    const struct {
        const char* service; /**< Its arguments; null for none. */
        const char* environment;
        const char* outcome; /**< Of the first frame. */
        long warnings;
    } cases[] = {
        {patient, "", "processed", 0},
        {"--abort-ms 40 --overload-ms 33", "AISR_SAMPLE_SLOW_MS=60", "expired", 0},
        {patient, "LD_LIBRARY_PATH=/nowhere", "refused-not-ready", 1},
        {nullptr, "", "not-offered", 1},
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
        EXPECT_EQ(count(run.output, "WARNING: from element"), c.warnings) << run.error;
        std::ifstream plain(folder / "plain");
        std::ifstream enhanced(folder / "enhanced");
        const std::regex outcomes("<displayenhance0> ([a-z-]+) after");
        std::sregex_iterator outcome(run.error.begin(), run.error.end(), outcomes);
        ASSERT_NE(outcome, std::sregex_iterator());
        EXPECT_EQ((*outcome)[1], c.outcome);
        std::string frames[2] = {std::string(640 * 520 * 3 / 2, '\0'), frames[0]};
        for (int i = 0; i < 40; ++i, ++outcome) {
            plain.read(frames[0].data(), static_cast<long>(frames[0].size()));
            enhanced.read(frames[1].data(), static_cast<long>(frames[1].size()));
            EXPECT_EQ(frames[0] != frames[1], (*outcome)[1] == "processed") << i;
        }
        EXPECT_TRUE(plain.good() && enhanced.good());
        EXPECT_EQ(plain.get(), EOF);
        EXPECT_EQ(enhanced.get(), EOF);
    }
}

TEST(PipelineTest, GoesOnWhenTheServiceIsKilledAndThroughChangesOfTheSize) {
    Service service(words("--abort-ms 60000 --overload-ms 60000 --monitor-frames 1000000"));
    ChildProcess pipeline(
        kLauncher,
        words("-e -v concat name=c ! displayenhance ! fakesink silent=false sync=false"
              " videotestsrc num-buffers=10 ! video/x-raw,format=NV12,width=721,height=577 ! c."
              " videotestsrc num-buffers=10 ! video/x-raw,format=NV12,width=320,height=240 ! c."
              " videotestsrc is-live=true ! video/x-raw,format=NV12,width=853,height=601 ! c."),
        environment());
    const auto waitForFrames = [&pipeline](int frames, int bytes) {
        const std::string text = "(" + std::to_string(bytes) + " bytes";
        while (frames > 0) {
            const std::optional<std::string> line = pipeline.readLine();
            ASSERT_TRUE(line.has_value()) << text << "\n" << pipeline.standardError();
            frames -= line->find(text) == std::string::npos ? 0 : 1;
        }
    };
    waitForFrames(10, 724 * 578 * 3 / 2);
    waitForFrames(10, 320 * 240 * 3 / 2);
    waitForFrames(1, 856 * 602 * 3 / 2);
    service.kill();
    waitForFrames(5, 856 * 602 * 3 / 2);
    pipeline.kill(SIGINT);
    while (pipeline.readLine()) {
    }
    EXPECT_EQ(pipeline.wait(), 0) << pipeline.standardError();
    EXPECT_EQ(count(pipeline.standardError(), "> not-offered after"), 10);
    EXPECT_GE(count(pipeline.standardError(), "> processed after"), 16);
}

}  // namespace
