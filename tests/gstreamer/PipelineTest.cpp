// SPDX-License-Identifier: Apache-2.0
// Pipelines with the element as a user starts them: gst-launch-1.0 beside the sample service, with
// the sample processing library.
#include <csignal>
#include <cstdlib>
#include <fstream>

#include "demo/ProgramRun.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kFrames = 40;

// Of this program alone, and removed at its end.
fs::path ownFolder() {
    return std::getenv("DISPLAYENGINE_RUNTIME_DIR");
}

/** What a pipeline needs to find; `processing` is where the processing library is. */
Strings environment(const fs::path& processing = kDemo / "processing") {
    const fs::path plugin = PLUGIN_FILE;
    Strings result = {
        "GST_PLUGIN_PATH=" + plugin.parent_path().string(),
        "GST_REGISTRY=" + (plugin.parent_path() / "test-registry.bin").string(),
        "GST_DEBUG=displayenhance:6",
        "GST_DEBUG_NO_COLOR=1",
        "LD_LIBRARY_PATH=" + processing.string(),
    };
    // The launcher is not built with the sanitizer whose runtime the plugin needs.
    if (const std::string runtime = SANITIZER_RUNTIME; !runtime.empty()) {
        result.insert(result.end(), {"LD_PRELOAD=" + runtime, "ASAN_OPTIONS=detect_leaks=0"});
    }
    return result;
}

/** The frames of a raw file. */
Strings frames(const fs::path& file, size_t bytes) {
    std::ifstream stream(file, std::ios::binary);
    Strings result;
    for (std::string frame(bytes, '\0'); stream.read(frame.data(), static_cast<long>(bytes));) {
        result.push_back(frame);
    }
    EXPECT_EQ(stream.gcount(), 0) << "a part of a frame in " << file;
    return result;
}

/** A source whose frames go to a file as they are, and through the element to another one. */
struct TwoBranches {
    static constexpr size_t kFrameBytes = 640 * 520 * 3 / 2;

    explicit TwoBranches(const Strings& variables, const std::string& options = "")
        : run("/usr/bin/gst-launch-1.0",
              words(options +
                    " videotestsrc pattern=pinwheel num-buffers=" + std::to_string(kFrames) +
                    " ! video/x-raw,format=NV12,width=640,height=520,framerate=25/1"
                    " ! tee name=t ! queue ! filesink location=" +
                    (ownFolder() / "plain").string() +
                    " t. ! queue ! displayenhance ! filesink location=" +
                    (ownFolder() / "enhanced").string()),
              variables) {
        const Strings plain = frames(ownFolder() / "plain", kFrameBytes);
        const Strings enhanced = frames(ownFolder() / "enhanced", kFrameBytes);
        EXPECT_EQ(run.code, 0) << run.error;
        EXPECT_EQ(plain.size(), kFrames);
        EXPECT_EQ(enhanced.size(), kFrames);
        for (size_t i = 0; i < plain.size() && i < enhanced.size(); ++i) {
            changed += plain[i] == enhanced[i] ? 0 : 1;
        }
    }
    /** How often a line of its log or its output has this text. */
    size_t count(const std::string& text) const {
        const std::string all = run.output + run.error;
        size_t result = 0;
        for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
            ++result;
        }
        return result;
    }

    const ProgramRun run;
    size_t changed = 0; /**< Frames of the second file that are not the first one's. */
};

TEST(PipelineTest, ChangesTheFramesThatWereEnhancedAndNoOtherBranch) {
    Service service(words("--abort-ms 60000 --overload-ms 60000"));
    const TwoBranches pipeline(environment());
    EXPECT_EQ(pipeline.count("> processed after"), kFrames);
    EXPECT_EQ(pipeline.changed, kFrames);
}

TEST(PipelineTest, ExpiredFramesAreTheOriginalsBitByBit) {
    Service service(words("--abort-ms 40 --overload-ms 33"));
    Strings variables = environment();
    variables.push_back("AISR_SAMPLE_SLOW_MS=60");
    const TwoBranches pipeline(variables, "-m");
    EXPECT_GE(pipeline.count("> expired after"), 1U);
    EXPECT_EQ(pipeline.count("> processed after"), 0U);
    EXPECT_GE(pipeline.count("(qos)"), 1U);
    EXPECT_EQ(pipeline.changed, 0U);
}

TEST(PipelineTest, PassesAndSaysWhatIsMissing) {
    {
        const TwoBranches noService(environment());
        EXPECT_EQ(noService.count("WARNING: from element"), 1U) << noService.run.error;
        EXPECT_EQ(noService.changed, 0U);
    }
    Service service;
    const TwoBranches noLibrary(environment("/nowhere"));
    EXPECT_EQ(noLibrary.count("WARNING: from element"), 1U) << noLibrary.run.error;
    EXPECT_EQ(noLibrary.changed, 0U);
}

TEST(PipelineTest, GoesOnWhenTheServiceIsKilledAndThroughChangesOfTheSize) {
    Service service(words("--abort-ms 60000 --overload-ms 60000 --monitor-frames 1000000"));
    const std::string source = " videotestsrc num-buffers=10 ! video/x-raw,format=NV12,width=";
    ChildProcess pipeline(
        "/usr/bin/gst-launch-1.0",
        words("-e -v concat name=c ! displayenhance ! fakesink silent=false sync=false" + source +
              "721,height=577,framerate=25/1 ! c." + source +
              "320,height=240,framerate=25/1 ! c. videotestsrc is-live=true !"
              " video/x-raw,format=NV12,width=853,height=601,framerate=25/1 ! c."),
        environment());
    const auto waitFor = [&pipeline](size_t count, const std::string& text) {
        while (count > 0) {
            const std::optional<std::string> line = pipeline.readLine();
            ASSERT_TRUE(line.has_value()) << text << "\n" << pipeline.standardError();
            count -= line->find(text) == std::string::npos ? 0 : 1;
        }
    };
    waitFor(10, "(" + std::to_string(724 * 578 * 3 / 2) + " bytes");
    waitFor(10, "(" + std::to_string(320 * 240 * 3 / 2) + " bytes");
    const std::string last = "(" + std::to_string(856 * 602 + 856 * 301);
    waitFor(1, last);
    service.kill();
    waitFor(5, last);
    pipeline.kill(SIGINT);
    while (pipeline.readLine()) {
    }
    EXPECT_EQ(pipeline.wait(), 0) << pipeline.standardError();
}

}  // namespace
