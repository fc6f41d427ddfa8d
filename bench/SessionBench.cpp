// SPDX-License-Identifier: Apache-2.0
// The time of a frame that is offered in a video session, beside the same call of the facade: with
// the messages that the session reads written to a logger that drops them, and without messages.
// The processing library does nothing, and caller and worker share a core, where what a frame costs
// beside waking threads weighs most.
#include <android/log.h>
#include <benchmark/benchmark.h>

#include "client/DisplayEngineManager.h"
#include "common/DisplayEngineCleanCommon.h"
#include "media/VideoSession.h"
#include "nothing/NothingProcess.h"
#include "support/Affinity.h"
#include "support/EngineSetup.h"
#include "support/Process.h"

namespace {

using displayengine::media::VideoSession;

void drop(const __android_log_message* /*message*/) {}

/** Measures one frame after the other; each is to be processed. */
template <typename FRAME>
void measure(benchmark::State& state, FRAME frame) {
    const uint64_t processedBefore = gNothingProcessed.load(std::memory_order_acquire);
    for (auto _ : state) {
        frame();
    }
    if (gNothingProcessed.load(std::memory_order_acquire) - processedBefore !=
        static_cast<uint64_t>(state.iterations())) {
        state.SkipWithError("a frame was refused, failed or expired");
    }
}

void session(benchmark::State& state) {
    const auto video = VideoSession::open({1280, 720, 30, drop});
    const Aisr::BufferInfo info = bench::frame(1);
    uint64_t released = 0;
    measure(state, [&] {
        video->offer({static_cast<uint8_t*>(info.y), static_cast<uint8_t*>(info.uv), info.width,
                      info.height, info.stride},
                     [&released] { ++released; });
    });
    bench::require(released == static_cast<uint64_t>(state.iterations()), "handing planes back");
}
BENCHMARK(session)->UseRealTime();

void facade(benchmark::State& state, bool isLogged) {
    const android::sp<DisplayEngineManager> manager = new DisplayEngineManager;
    __android_log_set_logger(drop);
    g_delogdEnable = g_delogiEnable = isLogged;
    Aisr::BufferInfo info = bench::frame(1);
    measure(state, [&] { manager->doVideoEnhance(info); });
}
BENCHMARK_CAPTURE(facade, logged, true)->UseRealTime();
BENCHMARK_CAPTURE(facade, silent, false)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    bench::setUpService();
    bench::Affinity affinity(bench::Place::kOneCore);
    return bench::run(argc, argv);
}
