// SPDX-License-Identifier: Apache-2.0
// That a process can go on for ever: a million frames, a thousand streams and ten thousand
// callbacks that are registered and withdrawn, over the facade and with the sample service as a
// second process. Memory, descriptors and threads of both processes, and the time of a frame, must
// be in the last tenth what they were in the first.
//
// With `--json FILE`, the samples go to FILE with the extension .dat; growth.gnuplot draws them.
#include <binder/ProcessState.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "aidl/BnDisplayEngineCallback.h"
#include "client/DisplayEngineManager.h"
#include "common/DisplayEngineCleanCommon.h"
#include "nothing/NothingProcess.h"
#include "support/EngineSetup.h"
#include "support/RuntimeDirectory.h"
#include "support/Table.h"

namespace {

namespace fs = std::filesystem;
using android::sp;
using Clock = std::chrono::steady_clock;

constexpr int kSamples = 200;
constexpr int kFramesPerSample = 5000;
constexpr int kFramesPerStream = 1000;
constexpr int kFramesPerCallback = 100;
constexpr int64_t kSlackKiB = 256;   // What the allocator may keep back; 30 bytes per callback.
constexpr int64_t kPoolGrowth = 14;  // A pool starts threads when they are needed, 15 in all.
constexpr double kSlowerAtMost = 1.25;

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
    double frameNs = 0; /**< Median of the frames since the last sample. */
    Holdings client;
    Holdings service;
};

/** The sample service, quiet and with limits that no frame here reaches. */
class Service {
public:
    Service() {
        const std::string program = (fs::read_symlink("/proc/self/exe").parent_path() /
                                     "../demo/service" / "displayengine-service")
                                        .string();
        const char* const words[] = {
            program.c_str(), "--monitor-frames", "2000000000", "--abort-ms",
            "10000",         "--overload-ms",    "10000",      nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        if (posix_spawn(&mPid, program.c_str(), &actions, nullptr, const_cast<char* const*>(words),
                        environ) != 0) {
            std::perror(program.c_str());
            std::exit(2);
        }
        posix_spawn_file_actions_destroy(&actions);
    }
    ~Service() {
        kill(mPid, SIGTERM);
        waitpid(mPid, nullptr, 0);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    pid_t pid() const { return mPid; }

private:
    pid_t mPid = -1;
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

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::vector<Sample> measure(pid_t service) {
    const sp<DisplayEngineManager> manager = new DisplayEngineManager;
    g_delogdEnable = g_delogiEnable = g_delogvEnable = false;
    if (manager->getService() == nullptr || !manager->isVideoEngineSupported()) {
        std::fprintf(stderr, "the sample service does not answer\n");
        std::exit(2);
    }
    android::ProcessState::self()->startThreadPool();
    manager->onVideoAppStart();

    std::vector<Sample> samples(kSamples);
    std::vector<double> times(kFramesPerSample);
    int64_t frame = 0;
    for (Sample& sample : samples) {
        for (double& time : times) {
            if (++frame % kFramesPerCallback == 0) {
                const sp<Callback> callback = new Callback;
                manager->registerCallback(callback);
                manager->unregisterCallback(callback);
            }
            Aisr::BufferInfo info =
                bench::frame(1 + static_cast<uint64_t>(frame / kFramesPerStream));
            const auto start = Clock::now();
            manager->doVideoEnhance(info);
            time = std::chrono::duration<double, std::nano>(Clock::now() - start).count();
        }
        sample = {median(times), Holdings::of(getpid()), Holdings::of(service)};
    }
    return samples;
}

/** The median of the first or the last tenth. */
using Value = std::function<double(const Sample&)>;
double tenth(const std::vector<Sample>& samples, bool isLast, const Value& value) {
    std::vector<double> values;
    for (size_t i = 0; i < samples.size() / 10; ++i) {
        values.push_back(value(isLast ? samples[samples.size() - 1 - i] : samples[i]));
    }
    return median(values);
}

bench::Table tableOf(const std::vector<Sample>& samples) {
    const uint64_t frames = gNothingProcessed;
    const uint64_t offered = uint64_t{kSamples} * kFramesPerSample;
    bench::Table table{
        "Growth: the last tenth of " + std::to_string(offered) + " frames beside the first",
        {},
        {}};
    const auto row = [&](const std::string& what, const std::string& first, const std::string& last,
                         const std::string& wanted, bool isMet, bench::Verdict otherwise) {
        bench::Row result;
        result.what = what;
        result.figure = last;
        result.beside = "first tenth " + first;
        result.wanted = wanted;
        result.verdict = isMet ? bench::Verdict::kMet : otherwise;
        table.rows.push_back(result);
    };
    const struct {
        const char* what;
        Value value;
        const char* unit;
        int64_t mayGrow;
    } holdings[] = {
        {"client's memory", [](auto& s) { return s.client.memoryKiB; }, " KiB", kSlackKiB},
        {"client's descriptors", [](auto& s) { return s.client.descriptors; }, "", 0},
        {"client's threads", [](auto& s) { return s.client.threads; }, "", kPoolGrowth},
        {"service's memory", [](auto& s) { return s.service.memoryKiB; }, " KiB", kSlackKiB},
        {"service's descriptors", [](auto& s) { return s.service.descriptors; }, "", 0},
        {"service's threads", [](auto& s) { return s.service.threads; }, "", kPoolGrowth}};
    for (const auto& held : holdings) {
        const auto first = static_cast<int64_t>(tenth(samples, false, held.value));
        const auto last = static_cast<int64_t>(tenth(samples, true, held.value));
        row(held.what, std::to_string(first) + held.unit, std::to_string(last) + held.unit,
            "at most " + std::to_string(held.mayGrow) + held.unit + " more",
            last - first <= held.mayGrow, bench::Verdict::kFailed);
    }
    const Value time = [](const Sample& sample) { return sample.frameNs; };
    const double first = tenth(samples, false, time);
    const double last = tenth(samples, true, time);
    row("frame", bench::formatTime(first), bench::formatTime(last),
        "ratio at most " + bench::formatRatio(kSlowerAtMost), last <= kSlowerAtMost * first,
        bench::Verdict::kMissed);
    table.rows.back().ratio = bench::formatRatio(last / first);
    if (frames != offered) {
        row("frames that the library got", "", std::to_string(frames), std::to_string(offered),
            false, bench::Verdict::kFailed);
    }
    table.notes = {"Besides the frames, " + std::to_string(offered / kFramesPerStream) +
                   " streams and " + std::to_string(offered / kFramesPerCallback) +
                   " callbacks, each registered with the sample service and withdrawn again."};
    return table;
}

void writeSamples(const fs::path& path, const std::vector<Sample>& samples) {
    std::ofstream file(path);
    file << "# frames frame_us client_KiB client_fds client_threads "
            "service_KiB service_fds service_threads\n";
    int64_t frames = 0;
    for (const Sample& sample : samples) {
        frames += kFramesPerSample;
        file << frames << ' ' << sample.frameNs / 1000;
        for (const Holdings& held : {sample.client, sample.service}) {
            file << ' ' << held.memoryKiB << ' ' << held.descriptors << ' ' << held.threads;
        }
        file << '\n';
    }
}

}  // namespace

int main(int argc, char** argv) {
    bench::useRuntimeDirectory();
    static const Service service;  // Outlives the engine, which withdraws at exit.
    const std::vector<Sample> samples = measure(service.pid());
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::string(argv[i]) == "--json") {
            writeSamples(fs::path(argv[i + 1]).replace_extension(".dat"), samples);
        }
    }
    return bench::deliver(tableOf(samples), argc, argv);
}
