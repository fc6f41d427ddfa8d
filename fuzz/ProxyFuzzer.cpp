// SPDX-License-Identifier: Apache-2.0
// Both proxies before a remote end that answers anything: what is sent, and what is made of it.
#include <functional>
#include <memory>

#include "aidl/BpDisplayEngineCallback.h"
#include "aidl/BpDisplayEngineService.h"
#include "support/Fuzzing.h"

using namespace fuzz;

namespace {

/** Keeps the request, and answers with an input. */
class Remote : public BBinder {
public:
    const Input* answer = nullptr;
    status_t status = OK;
    uint32_t lastCode = 0;
    uint32_t lastFlags = 0;
    std::vector<uint8_t> request;

protected:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        lastCode = code;
        lastFlags = flags;
        request.assign(data.data(), data.data() + data.dataSize());
        answer->fill(reply);
        return status;
    }
};

Status call(de::IDisplayEngineService& s, uint32_t code, Values* v) {
    const int32_t a = v->numbers[0], b = v->numbers[1], c = v->numbers[2];
    de::DeGraphicBuffer* const buffers = v->buffers;
    const std::function<Status()> calls[] = {
        [&] { return s.getSupported(a, &v->result); },
        [&] { return s.setScene(a, b, &v->result); },
        [&] { return s.setData(a, v->bundle, &v->result); },
        [&] { return s.getEffectEx(a, b, &v->values, c, &v->result); },
        [&] { return s.getEffect(a, b, &v->bytes, c, &v->result); },
        [&] { return s.getEffectExByData(a, v->bundle, &v->values, &v->result); },
        [&] { return s.setEffect(a, b, v->bundle, &v->result); },
        [&] { return s.registerCallback(v->callback); },
        [&] { return s.registerCallbackEx(v->callback, v->bundle, &v->accepted); },
        [&] { return s.unregisterCallback(v->callback); },
        [&] { return s.unregisterCallbackEx(v->bundle); },
        [&] { return s.processGraphicBuffer(a, b, &buffers[0], &buffers[1], &v->result); },
    };
    return calls[code - 1]();
}

Status call(de::IDisplayEngineCallback& callback, uint32_t code, Values* v) {
    return code == 1 ? callback.onEvent(v->numbers[0], v->numbers[1])
                     : callback.onEventWithData(v->numbers[0], v->bundle);
}

/** The status that stands at the front of a reply, or the error for its place. */
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

/** The same values, with graphic buffers of their own. */
Values fresh(Values values) {
    for (de::DeGraphicBuffer& buffer : values.buffers) {
        Parcel parcel;
        buffer.writeToParcel(&parcel);
        parcel.setDataPosition(0);
        buffer = de::DeGraphicBuffer();
        buffer.readFromParcel(&parcel);
    }
    return values;
}

template <typename PROXY, typename DEFAULT, size_t N>
void callAndCompare(const sp<Remote>& remote, DEFAULT* fallback, const Operation (&operations)[N],
                    uint32_t number, const Values& arguments) {
    const uint32_t code = 1 + number % N;
    const Operation& operation = operations[code - 1];
    Values given = fresh(arguments), expected = fresh(arguments);
    Parcel request, called, left, right;
    request.writeInterfaceToken(DEFAULT::descriptor);
    expected.write(operation.request, &request);
    called.writeInt32(static_cast<int32_t>(code));
    expected.write(operation.request, &called);

    const sp<PROXY> proxy = new PROXY(remote);
    fallback->call.freeData();
    const Status status = call(*proxy, code, &given);
    REQUIRE(remote->lastCode == code);
    REQUIRE(remote->lastFlags == (operation.reply == nullptr ? IBinder::FLAG_ONEWAY : 0));
    REQUIRE(std::equal(request.data(), request.data() + request.dataSize(), remote->request.begin(),
                       remote->request.end()));

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
    given.write(kEverything, &left);
    expected.write(kEverything, &right);
    REQUIRE(same(left, right));
}

/** A default cannot be taken away again, so there is one from the beginning. */
template <typename DEFAULT>
DEFAULT* makeDefault() {
    auto made = std::make_unique<DEFAULT>();
    DEFAULT* const kept = made.get();
    REQUIRE(DEFAULT::setDefaultImpl(std::move(made)));
    return kept;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static RecordingService* const service = makeDefault<RecordingService>();
    static RecordingCallback* const callback = makeDefault<RecordingCallback>();
    return requireNoLeak([&] {
        enum : uint8_t { kOfCallback = 1, kEveryCut = 2, kFails = 4, kUnknown = 8 };
        FuzzedDataProvider data(bytes, size);
        const auto choice = data.ConsumeIntegral<uint8_t>();
        const auto number = data.ConsumeIntegral<uint8_t>();
        const auto error = data.ConsumeIntegral<int32_t>();
        const sp<Remote> remote = new Remote;
        remote->status = (choice & kFails) == 0     ? status_t{OK}
                         : (choice & kUnknown) != 0 ? status_t{UNKNOWN_TRANSACTION}
                                                    : error;
        const Values arguments(data);
        service->answers = Values(data);
        service->outcome = callback->outcome = makeStatus(data);
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
    });
}
