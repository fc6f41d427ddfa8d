// Both proxies before a remote end that answers anything: what is sent, and what is made of it.
#include <binder/Binder.h>

#include <memory>

#include "aidl/BpDisplayEngineCallback.h"
#include "aidl/BpDisplayEngineService.h"
#include "support/Fuzzing.h"

using namespace android;
using namespace fuzz;

namespace {

/// Keeps the request, and answers with an input.
class Remote : public BBinder {
public:
    const Input* answer = nullptr;
    status_t status = OK;
    uint32_t lastCode = 0;
    uint32_t lastFlags = 0;
    Parcel request;

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        lastCode = code;
        lastFlags = flags;
        request.freeData();
        request.write(data.data(), data.dataSize());
        answer->fill(reply);
        return status;
    }
};

Status call(de::IDisplayEngineService& service, uint32_t code, Values* v) {
    const int32_t a = v->numbers[0], b = v->numbers[1], c = v->numbers[2];
    switch (code) {
        case 1:
            return service.getSupported(a, &v->result);
        case 2:
            return service.setScene(a, b, &v->result);
        case 3:
            return service.setData(a, v->bundle, &v->result);
        case 4:
            return service.getEffectEx(a, b, &v->values, c, &v->result);
        case 5:
            return service.getEffect(a, b, &v->bytes, c, &v->result);
        case 6:
            return service.getEffectExByData(a, v->bundle, &v->values, &v->result);
        case 7:
            return service.setEffect(a, b, v->bundle, &v->result);
        case 8:
            return service.registerCallback(v->callback);
        case 9:
            return service.registerCallbackEx(v->callback, v->bundle, &v->accepted);
        case 10:
            return service.unregisterCallback(v->callback);
        case 11:
            return service.unregisterCallbackEx(v->bundle);
        default:
            return service.processGraphicBuffer(a, b, &v->buffers[0], &v->buffers[1], &v->result);
    }
}

Status call(de::IDisplayEngineCallback& callback, uint32_t code, Values* v) {
    return code == 1 ? callback.onEvent(v->numbers[0], v->numbers[1])
                     : callback.onEventWithData(v->numbers[0], v->bundle);
}

/// The status that stands at the front of a reply, or the error for its place.
Status readStatus(const Parcel& reply) {
    int32_t exception = 0, trace = 0, code = 0;
    String16 message;
    status_t status = reply.readInt32(&exception);
    if (status != OK || exception == Status::EX_NONE) {
        return Status::fromStatusT(status);
    }
    if ((status = reply.readString16(&message)) == OK && (status = reply.readInt32(&trace)) == OK &&
        (trace < 0 || static_cast<size_t>(trace) > reply.dataAvail())) {
        status = UNKNOWN_ERROR;
    }
    reply.setDataPosition(reply.dataPosition() + static_cast<size_t>(trace));
    const bool specific = status == OK && exception == Status::EX_SERVICE_SPECIFIC;
    if (specific) {
        status = reply.readInt32(&code);
    }
    return status != OK ? Status::fromStatusT(status)
           : specific   ? Status::fromServiceSpecificError(code, String8(message))
                        : Status::fromExceptionCode(exception, String8(message));
}

template <typename PROXY, typename DEFAULT, size_t N>
void callAndCompare(const sp<Remote>& remote, DEFAULT* fallback, const Operation (&operations)[N],
                    uint32_t number, const Values& arguments) {
    const uint32_t code = 1 + number % N;
    const Operation& operation = operations[code - 1];
    Values given = arguments.fresh(), expected = arguments.fresh();
    Parcel request, called;
    request.writeInterfaceToken(DEFAULT::descriptor);
    expected.write(operation.request, &request);
    called.writeInt32(static_cast<int32_t>(code));
    expected.write(operation.request, &called);

    const sp<PROXY> proxy = new PROXY(remote);
    fallback->call.freeData();
    const Status status = call(*proxy, code, &given);
    REQUIRE(remote->lastCode == code);
    REQUIRE(remote->lastFlags == (operation.reply == nullptr ? IBinder::FLAG_ONEWAY : 0));
    REQUIRE(std::equal(request.data(), request.data() + request.dataSize(), remote->request.data(),
                       remote->request.data() + remote->request.dataSize()));

    Status outcome = Status::fromStatusT(remote->status);
    if (remote->status == UNKNOWN_TRANSACTION) {
        REQUIRE(same(fallback->call, called));
        outcome = call(*fallback, code, &expected);
    } else {
        REQUIRE(fallback->call.dataSize() == 0);
        Parcel reply;
        if (remote->status == OK && operation.reply != nullptr) {
            remote->answer->fill(&reply);
            outcome = readStatus(reply);
            const status_t read = outcome.isOk() ? expected.read(operation.reply, reply) : OK;
            outcome = read != OK ? Status::fromStatusT(read) : outcome;
        }
    }
    REQUIRE(status.exceptionCode() == outcome.exceptionCode());
    REQUIRE(status.toString8() == outcome.toString8());
    Parcel left, right;
    given.write("nnnvycbggrz", &left);
    expected.write("nnnvycbggrz", &right);
    REQUIRE(same(left, right));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    // A default cannot be taken away again, so there is one from the beginning.
    static RecordingService* const service = [] {
        auto made = std::make_unique<RecordingService>();
        auto* const kept = made.get();
        REQUIRE(RecordingService::setDefaultImpl(std::move(made)));
        return kept;
    }();
    static RecordingCallback* const callback = [] {
        auto made = std::make_unique<RecordingCallback>();
        auto* const kept = made.get();
        REQUIRE(RecordingCallback::setDefaultImpl(std::move(made)));
        return kept;
    }();
    const size_t open = openDescriptors();
    {
        FuzzedDataProvider data(bytes, size);
        enum : uint8_t { kOfCallback = 1, kEveryCut = 2, kFails = 4, kUnknown = 8 };
        const auto choice = data.ConsumeIntegral<uint8_t>();
        const auto number = data.ConsumeIntegral<uint8_t>();
        const sp<Remote> remote = new Remote;
        const auto error = data.ConsumeIntegral<int32_t>();
        remote->status = (choice & kFails) == 0     ? status_t{OK}
                         : (choice & kUnknown) != 0 ? status_t{UNKNOWN_TRANSACTION}
                                                    : error;
        const Values arguments = makeValues(data);
        service->answers = makeValues(data);
        service->outcome = callback->outcome = makeStatus(data, true);
        Input answer(data);
        remote->answer = &answer;
        answer.eachCut((choice & kEveryCut) != 0, [&] {
            if ((choice & kOfCallback) != 0) {
                callAndCompare<de::BpDisplayEngineCallback>(remote, callback, kCallbackOperations,
                                                            number, arguments);
            } else {
                callAndCompare<de::BpDisplayEngineService>(remote, service, kServiceOperations,
                                                           number, arguments);
            }
        });
        service->answers = Values();
        service->call.freeData();
        callback->call.freeData();
    }
    REQUIRE(openDescriptors() == open);
    return 0;
}
