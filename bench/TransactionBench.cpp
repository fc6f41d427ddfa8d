// SPDX-License-Identifier: Apache-2.0
// A two-way transaction between two processes, beside the same bytes over a bare pair of sockets
// that keep messages whole, and beside sd-bus, which also connects two processes directly.
//
// The server of each is another process, which is this program started once more. All three are
// measured in two places. On two cores, client and server have one each, and most of the time is
// the waking of an idle core. On one core, both share it, and what the two processes and the kernel
// do for a call weighs most. How many calls several threads make together is measured without
// pinning, beside as many bare pairs.
#include <benchmark/benchmark.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

#include "aidl/UnsupportedService.h"
#include "support/Affinity.h"
#include "support/Process.h"

namespace {

using android::Parcel;
using android::sp;
using android::String16;
using android::binder::Status;
using bench::Affinity;
using bench::Place;
using bench::require;
using com::tivora::displayengine::IDisplayEngineService;

constexpr int32_t kFeature = 20;
constexpr size_t kHeaderSize = 32;  // What tells a call's object, code, flags and sizes.
constexpr const char* kPinnedService = "DisplayEngineService.pinned";
constexpr const char* kService = "DisplayEngineService";
constexpr const char* kBusPath = "/service";
constexpr const char* kBusInterface = "com.tivora.displayengine.IDisplayEngineService";
constexpr const char* kBusMethod = "getSupported";

/** Answers with the question, so that each way can be checked. */
int32_t answerTo(int32_t feature) {
    return feature + 1;
}

class Service : public com::tivora::displayengine::UnsupportedService {
public:
    Status getSupported(int32_t feature, int32_t* result) override {
        *result = answerTo(feature);
        return Status::ok();
    }
};

// The sizes of the two messages.

size_t requestSize() {
    Parcel parcel;
    parcel.writeInterfaceToken(IDisplayEngineService::descriptor);
    parcel.writeInt32(kFeature);
    return kHeaderSize + parcel.dataSize();
}

size_t replySize() {
    Parcel parcel;
    Status::ok().writeToParcel(&parcel);
    parcel.writeInt32(answerTo(kFeature));
    return kHeaderSize + parcel.dataSize();
}

bool exchange(int socket, void* out, size_t outSize, void* in, size_t inSize) {
    return ::send(socket, out, outSize, MSG_NOSIGNAL) == static_cast<ssize_t>(outSize) &&
           ::recv(socket, in, inSize, 0) == static_cast<ssize_t>(inSize);
}

// The servers.

[[noreturn]] void serveBinder(const char* name) {
    require(
        android::defaultServiceManager()->addService(String16(name), new Service) == android::OK,
        "registering the service");
    android::ProcessState::self()->startThreadPool();
    android::IPCThreadState::self()->joinThreadPool();
    std::abort();
}

[[noreturn]] void serveBytes() {
    std::string request(requestSize(), '\0');
    std::string reply(replySize(), '\0');
    require(::recv(STDIN_FILENO, request.data(), request.size(), 0) > 0, "receiving");
    while (exchange(STDIN_FILENO, reply.data(), reply.size(), request.data(), request.size())) {
    }
    std::exit(0);
}

int onBusCall(sd_bus_message* call, void* /*data*/, sd_bus_error* /*error*/) {
    int32_t feature = 0;
    const int status = sd_bus_message_read(call, "i", &feature);
    return status < 0 ? status : sd_bus_reply_method_return(call, "ii", 0, answerTo(feature));
}

[[noreturn]] void serveBus() {
    static const sd_bus_vtable methods[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("getSupported", "i", "ii", onBusCall, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END};
    sd_bus* bus = nullptr;
    sd_id128_t id;
    require(sd_id128_randomize(&id) >= 0 && sd_bus_new(&bus) >= 0 &&
                sd_bus_set_fd(bus, STDIN_FILENO, STDIN_FILENO) >= 0 &&
                sd_bus_set_server(bus, 1, id) >= 0 && sd_bus_set_anonymous(bus, 1) >= 0 &&
                sd_bus_add_object_vtable(bus, nullptr, kBusPath, kBusInterface, methods, nullptr) >=
                    0 &&
                sd_bus_start(bus) >= 0,
            "serving the bus");
    int status = 0;
    while ((status = sd_bus_process(bus, nullptr)) >= 0) {
        if (status == 0) {
            sd_bus_wait(bus, UINT64_MAX);
        }
    }
    std::exit(0);
}

// The clients.

/** A server with a socket to it. */
class Connected {
public:
    Connected(const char* role, int type) {
        int ends[2];
        require(::socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
        mSocket = ends[0];
        mPeer = std::make_unique<bench::Peer>(bench::thisProgram(), std::vector<std::string>{role},
                                              ends[1]);
        ::close(ends[1]);
    }
    ~Connected() { ::close(mSocket); }
    Connected(const Connected&) = delete;
    Connected& operator=(const Connected&) = delete;

    int socket() const { return mSocket; }

private:
    int mSocket = -1;
    std::unique_ptr<bench::Peer> mPeer;
};

sp<IDisplayEngineService> lookUp(const char* name) {
    const sp<IDisplayEngineService> service = IDisplayEngineService::asInterface(
        android::defaultServiceManager()->getService(String16(name)));
    require(service != nullptr, "looking the service up");
    return service;
}

void measureCalls(benchmark::State& state, IDisplayEngineService& service) {
    for (auto _ : state) {
        int32_t result = 0;
        if (!service.getSupported(kFeature, &result).isOk() || result != answerTo(kFeature)) {
            state.SkipWithError("the service did not answer");
            break;
        }
    }
}

void transaction(benchmark::State& state, Place place) {
    Affinity affinity(place);
    static const sp<IDisplayEngineService> service = lookUp(kPinnedService);
    affinity.callerGoes();
    measureCalls(state, *service);
}
BENCHMARK_CAPTURE(transaction, twoCores, Place::kTwoCores)->UseRealTime();
BENCHMARK_CAPTURE(transaction, oneCore, Place::kOneCore)->UseRealTime();

void transactions(benchmark::State& state) {
    static const sp<IDisplayEngineService> service = lookUp(kService);
    measureCalls(state, *service);
}
BENCHMARK(transactions)->ThreadRange(1, 8)->UseRealTime();

void measureExchanges(benchmark::State& state, const Connected& server) {
    std::string request(requestSize(), '\0');
    std::string reply(replySize(), '\0');
    for (auto _ : state) {
        if (!exchange(server.socket(), request.data(), request.size(), reply.data(),
                      reply.size())) {
            state.SkipWithError("the other process did not answer");
            break;
        }
    }
}

void bytes(benchmark::State& state, Place place) {
    Affinity affinity(place);
    static const Connected server("--serve-bytes", SOCK_SEQPACKET);
    affinity.callerGoes();
    measureExchanges(state, server);
}
BENCHMARK_CAPTURE(bytes, twoCores, Place::kTwoCores)->UseRealTime();
BENCHMARK_CAPTURE(bytes, oneCore, Place::kOneCore)->UseRealTime();

void bytesOfThreads(benchmark::State& state) {
    measureExchanges(state, Connected("--serve-bytes", SOCK_SEQPACKET));
}
BENCHMARK(bytesOfThreads)->ThreadRange(1, 8)->UseRealTime();

sd_bus* connectBus() {
    static const Connected server("--serve-bus", SOCK_STREAM);
    sd_bus* bus = nullptr;
    require(sd_bus_new(&bus) >= 0 && sd_bus_set_fd(bus, server.socket(), server.socket()) >= 0 &&
                sd_bus_set_anonymous(bus, 1) >= 0 && sd_bus_start(bus) >= 0,
            "connecting to the bus");
    return bus;
}

void busCall(benchmark::State& state, Place place) {
    Affinity affinity(place);
    static sd_bus* const bus = connectBus();
    affinity.callerGoes();
    for (auto _ : state) {
        sd_bus_message* reply = nullptr;
        int32_t status = -1;
        int32_t result = 0;
        const bool isDone = sd_bus_call_method(bus, nullptr, kBusPath, kBusInterface, kBusMethod,
                                               nullptr, &reply, "i", kFeature) >= 0 &&
                            sd_bus_message_read(reply, "ii", &status, &result) >= 0;
        sd_bus_message_unref(reply);
        if (!isDone || result != answerTo(kFeature)) {
            state.SkipWithError("the bus did not answer");
            break;
        }
    }
}
BENCHMARK_CAPTURE(busCall, twoCores, Place::kTwoCores)->UseRealTime();
BENCHMARK_CAPTURE(busCall, oneCore, Place::kOneCore)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    const std::string role = argc > 1 ? argv[1] : "";
    if (role == "--serve-binder") {
        serveBinder(argv[2]);
    } else if (role == "--serve-bytes") {
        serveBytes();
    } else if (role == "--serve-bus") {
        serveBus();
    }
    bench::useRuntimeDirectory();
    const bench::Peer service(bench::thisProgram(), {"--serve-binder", kService});
    std::optional<Affinity> affinity(Place::kOneCore);
    const bench::Peer pinned(bench::thisProgram(), {"--serve-binder", kPinnedService});
    affinity.reset();
    return bench::run(argc, argv);
}
