// SPDX-License-Identifier: Apache-2.0
// A two-way transaction between two processes, beside the least that two processes need to exchange
// the same bytes, and beside another bus that connects two processes directly.
//
// Each way has a server process of its own, which is this program started once more. The bare
// exchange sends as many bytes each way as the transaction's two frames have. All is measured in
// two places, alike for all three ways. On two cores, client and server have one each, and most of
// the time is the waking of an idle core. On one core, both have the same, and what the two
// processes and the kernel do for a call weighs most.
#include <benchmark/benchmark.h>
#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <binder/ProcessState.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "aidl/UnsupportedService.h"
#include "client/ServiceConnection.h"
#include "platform/src/Frame.h"
#include "support/Affinity.h"
#include "support/Comparison.h"
#include "support/Peer.h"
#include "support/RuntimeDirectory.h"

namespace {

using android::Parcel;
using android::sp;
using android::String16;
using android::binder::Status;
using bench::Affinity;
using bench::Place;
using com::tivora::displayengine::IDisplayEngineService;

constexpr int32_t kFeature = 20;
constexpr const char* kServiceName = "DisplayEngineService";
constexpr const char* kBusPath = "/service";
constexpr const char* kBusInterface = "com.tivora.displayengine.IDisplayEngineService";
constexpr const char* kBusMethod = "getSupported";

/** Answers with the question, so that each way can be checked. */
int32_t answerTo(int32_t feature) {
    return feature + 1;
}

/** Ends the process with the reason unless `isGood`. */
void require(bool isGood, const char* what) {
    if (!isGood) {
        std::fprintf(stderr, "%s failed\n", what);
        std::exit(2);
    }
}

class Service : public com::tivora::displayengine::UnsupportedService {
public:
    Status getSupported(int32_t feature, int32_t* result) override {
        *result = answerTo(feature);
        return Status::ok();
    }
};

// The sizes of the two frames.

size_t requestSize() {
    Parcel parcel;
    parcel.writeInterfaceToken(IDisplayEngineService::descriptor);
    parcel.writeInt32(kFeature);
    return sizeof(android::transport::FrameHeader) + parcel.dataSize();
}

size_t replySize() {
    Parcel parcel;
    Status::ok().writeToParcel(&parcel);
    parcel.writeInt32(answerTo(kFeature));
    return sizeof(android::transport::FrameHeader) + parcel.dataSize();
}

bool exchange(int socket, void* out, size_t outSize, void* in, size_t inSize) {
    return ::send(socket, out, outSize, MSG_NOSIGNAL) == static_cast<ssize_t>(outSize) &&
           ::recv(socket, in, inSize, MSG_WAITALL) == static_cast<ssize_t>(inSize);
}

// The servers.

[[noreturn]] void serveBinder() {
    const android::status_t status =
        android::defaultServiceManager()->addService(String16(kServiceName), new Service);
    require(status == android::OK, "registering the service");
    android::ProcessState::self()->startThreadPool();
    android::IPCThreadState::self()->joinThreadPool();
    std::abort();
}

[[noreturn]] void serveBytes() {
    std::string request(requestSize(), '\0');
    std::string reply(replySize(), '\0');
    require(::recv(STDIN_FILENO, request.data(), request.size(), MSG_WAITALL) > 0, "receiving");
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
    explicit Connected(const char* role) {
        int ends[2];
        require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
        mSocket = ends[0];
        mPeer = std::make_unique<bench::Peer>(std::vector<std::string>{role}, ends[1]);
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

void call(benchmark::State& state, IDisplayEngineService& service) {
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
    static const sp<IDisplayEngineService> service = getDisplayEngineService();
    require(service != nullptr, "looking the service up");
    affinity.callerGoes();
    call(state, *service);
}

void bytes(benchmark::State& state, Place place) {
    Affinity affinity(place);
    static const Connected server("--serve-bytes");
    std::string request(requestSize(), '\0');
    std::string reply(replySize(), '\0');
    affinity.callerGoes();
    for (auto _ : state) {
        if (!exchange(server.socket(), request.data(), request.size(), reply.data(),
                      reply.size())) {
            state.SkipWithError("the other process did not answer");
            break;
        }
    }
}

sd_bus* connectBus() {
    static const Connected server("--serve-bus");
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

/** The service of the process itself, as the service manager hands it out. */
void localCall(benchmark::State& state) {
    static const sp<IDisplayEngineService> service = [] {
        const String16 name("DisplayEngineService.local");
        require(android::defaultServiceManager()->addService(name, new Service) == android::OK,
                "registering the local service");
        return IDisplayEngineService::asInterface(
            android::defaultServiceManager()->checkService(name));
    }();
    call(state, *service);
}
BENCHMARK(localCall);

/** The peer of a local call: the same work behind a plain virtual function. */
class Virtual {
public:
    virtual ~Virtual() = default;
    virtual Status getSupported(int32_t feature, int32_t* result) {
        *result = answerTo(feature);
        return Status::ok();
    }
};

void virtualCall(benchmark::State& state) {
    Virtual object;
    Virtual* callee = &object;
    for (auto _ : state) {
        benchmark::DoNotOptimize(callee);
        int32_t result = 0;
        benchmark::DoNotOptimize(callee->getSupported(kFeature, &result).isOk());
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(virtualCall);

void registerBenchmarks(const std::string& suffix, Place place) {
    const auto add = [&](const char* name, void (*measurement)(benchmark::State&, Place)) {
        benchmark::RegisterBenchmark((name + suffix).c_str(), measurement, place)->UseRealTime();
    };
    add("transaction", &transaction);
    add("bytes", &bytes);
    add("busCall", &busCall);
}

}  // namespace

int main(int argc, char** argv) {
    const std::string role = argc > 1 ? argv[1] : "";
    if (role == "--serve-binder") {
        serveBinder();
    } else if (role == "--serve-bytes") {
        serveBytes();
    } else if (role == "--serve-bus") {
        serveBus();
    }
    bench::useRuntimeDirectory();
    {
        const Affinity server(Place::kOneCore);
        static const bench::Peer service({"--serve-binder"});
    }
    registerBenchmarks("TwoCores", Place::kTwoCores);
    registerBenchmarks("OneCore", Place::kOneCore);
    using Wanted = bench::Comparison::Wanted;
    const char* const kSocket = "the same bytes over a bare socket";
    const char* const kBus = "sd-bus, directly connected";
    return bench::runComparisons(
        "A two-way transaction, `getSupported`",
        {{"processes on two cores", "transactionTwoCores", kSocket, "bytesTwoCores"},
         {"processes on two cores", "transactionTwoCores", kBus, "busCallTwoCores", Wanted::kLess,
          1.0},
         {"sd-bus on two cores", "busCallTwoCores", kSocket, "bytesTwoCores"},
         {"processes on one core", "transactionOneCore", kSocket, "bytesOneCore"},
         {"processes on one core", "transactionOneCore", kBus, "busCallOneCore", Wanted::kLess,
          1.0},
         {"sd-bus on one core", "busCallOneCore", kSocket, "bytesOneCore"},
         {"within the process", "localCall", "virtual call", "virtualCall"}},
        {}, argc, argv);
}
