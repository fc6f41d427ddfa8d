// SPDX-License-Identifier: Apache-2.0
// Whether a process can go on for ever: a million frames, a thousand streams and ten thousand
// callbacks that are registered and withdrawn, over the facade and with the sample service as a
// second process. Writes growth.dat into the current folder: memory, descriptors and threads of
// both processes and the median time of a frame, after every 5000 frames. tables.py compares the
// last tenth with the first, growth.gnuplot draws them.
#include <benchmark/benchmark.h>
#include <binder/ProcessState.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "aidl/BnDisplayEngineCallback.h"
#include "client/DisplayEngineManager.h"
#include "common/DisplayEngineCleanCommon.h"
#include "nothing/NothingProcess.h"
#include "support/Affinity.h"
#include "support/EngineSetup.h"
#include "support/Process.h"

namespace {

namespace fs = std::filesystem;
using android::sp;
using Clock = std::chrono::steady_clock;

constexpr size_t kFrames = 1'000'000;
constexpr size_t kFramesPerSample = 5000;
constexpr size_t kFramesPerStream = 1000;
constexpr size_t kFramesPerCallback = 100;

pid_t gService = -1;

/** What a process holds. */
struct Holdings {
    int64_t memoryKiB = 0;
    int64_t descriptors = 0;
    int64_t threads = 0;

    static Holdings of(pid_t pid) {
        const fs::path process = "/proc/" + std::to_string(pid);
        int64_t pages = 0;
        std::ifstream(process / "statm") >> pages >> pages;
        const auto count = [&](const char* what) {
            return std::distance(fs::directory_iterator(process / what), fs::directory_iterator());
        };
        return {pages * sysconf(_SC_PAGESIZE) / 1024, count("fd"), count("task")};
    }
};

struct Sample {
    double frameUs = 0; /**< Median of the frames since the last sample. */
    Holdings client;
    Holdings service;
};

class Callback : public com::tivora::displayengine::BnDisplayEngineCallback {
public:
    android::binder::Status onEvent(int32_t /*event*/, int32_t /*value*/) override {
        return android::binder::Status::ok();
    }
    android::binder::Status onEventWithData(
        int32_t /*event*/, const android::os::PersistableBundle& /*data*/) override {
        return android::binder::Status::ok();
    }
};

double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void writeSamples(const std::vector<Sample>& samples) {
    std::ofstream file("growth.dat");
    file << "# frames frame_us client_KiB client_fds client_threads "
            "service_KiB service_fds service_threads\n";
    size_t frames = 0;
    for (const Sample& sample : samples) {
        frames += kFramesPerSample;
        file << frames << ' ' << sample.frameUs;
        for (const Holdings& held : {sample.client, sample.service}) {
            file << ' ' << held.memoryKiB << ' ' << held.descriptors << ' ' << held.threads;
        }
        file << '\n';
    }
    bench::require(file.flush().good(), "writing growth.dat");
}

void frames(benchmark::State& state) {
    const bench::Affinity affinity(bench::Place::kOneCore);
    const sp<DisplayEngineManager> manager = new DisplayEngineManager;
    g_delogdEnable = g_delogiEnable = g_delogvEnable = false;
    bench::require(manager->getService() != nullptr && manager->isVideoEngineSupported(),
                   "asking the sample service");
    android::ProcessState::self()->startThreadPool();
    manager->onVideoAppStart();

    // All that the measurement itself holds is there from the start.
    std::vector<Sample> samples(kFrames / kFramesPerSample);
    std::vector<double> times(kFramesPerSample);
    size_t frame = 0;
    for (auto _ : state) {
        if (frame % kFramesPerCallback == 0) {
            const sp<Callback> callback = new Callback;
            manager->registerCallback(callback);
            manager->unregisterCallback(callback);
        }
        Aisr::BufferInfo info = bench::frame(1 + frame / kFramesPerStream);
        const auto start = Clock::now();
        manager->doVideoEnhance(info);
        times[frame % kFramesPerSample] =
            std::chrono::duration<double, std::micro>(Clock::now() - start).count();
        if (++frame % kFramesPerSample == 0) {
            samples[frame / kFramesPerSample - 1] = {median(times), Holdings::of(getpid()),
                                                     Holdings::of(gService)};
        }
    }
    if (gNothingProcessed != kFrames) {
        state.SkipWithError("a frame was refused, failed or expired");
    }
    writeSamples(samples);
}
BENCHMARK(frames)->Iterations(kFrames)->Repetitions(1)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    bench::useRuntimeDirectory();
    const std::string folder = fs::path(bench::thisProgram()).parent_path();
    // Quiet, and with limits that no frame here reaches. It outlives the engine, which withdraws
    // its registration at exit.
    static const bench::Peer service(
        folder + "/../demo/service/displayengine-service",
        {"--monitor-frames", "2000000000", "--abort-ms", "10000", "--overload-ms", "10000"});
    gService = service.pid();
    return bench::run(argc, argv);
}
