// SPDX-License-Identifier: Apache-2.0
// The service's proxy before a remote end that answers anything: what is sent, and what is made of
// it.
#include <memory>

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

/** There is no default, so that a new code does not compile before it has its case. */
Status call(de::IDisplayEngineService& s, uint32_t code, Values* v) {
    const int32_t a = v->numbers[0];
    const int32_t b = v->numbers[1];
    switch (static_cast<de::ServiceCode>(code)) {
        case de::ServiceCode::GET_SUPPORTED:
            return s.getSupported(a, &v->result);
        case de::ServiceCode::SET_SCENE:
            return s.setScene(a, b, &v->result);
        case de::ServiceCode::SET_DATA:
            return s.setData(a, v->bundle, &v->result);
        case de::ServiceCode::GET_EFFECT_EX:
            return s.getEffectEx(a, b, &v->values, v->numbers[2], &v->result);
        case de::ServiceCode::GET_EFFECT:
            return s.getEffect(a, b, &v->bytes, v->numbers[2], &v->result);
        case de::ServiceCode::GET_EFFECT_EX_BY_DATA:
            return s.getEffectExByData(a, v->bundle, &v->values, &v->result);
        case de::ServiceCode::SET_EFFECT:
            return s.setEffect(a, b, v->bundle, &v->result);
        case de::ServiceCode::REGISTER_CALLBACK:
            return s.registerCallback(v->callback);
        case de::ServiceCode::REGISTER_CALLBACK_EX:
            return s.registerCallbackEx(v->callback, v->bundle, &v->accepted);
        case de::ServiceCode::UNREGISTER_CALLBACK:
            return s.unregisterCallback(v->callback);
        case de::ServiceCode::UNREGISTER_CALLBACK_EX:
            return s.unregisterCallbackEx(v->bundle);
        case de::ServiceCode::PROCESS_GRAPHIC_BUFFER:
            return s.processGraphicBuffer(a, b, &v->buffers[0], &v->buffers[1], &v->result);
    }
    std::abort();
}

/** The status that stands at the front of a reply, or the error for its place. */
Status readStatus(const Parcel& reply) {
    int32_t exception = 0;
    int32_t trace = 0;
    int32_t code = 0;
    String16 message;
    status_t status = reply.readInt32(&exception);
    if (status != OK || exception == Status::EX_NONE) {
        return Status::fromStatusT(status);
    }
    if ((status = reply.readString16(&message)) != OK || (status = reply.readInt32(&trace)) != OK) {
        return Status::fromStatusT(status);
    }
    if (trace < 0 || static_cast<size_t>(trace) > reply.dataAvail()) {
        return Status::fromStatusT(UNKNOWN_ERROR);
    }
    reply.setDataPosition(reply.dataPosition() + static_cast<size_t>(trace));
    if (exception != Status::EX_SERVICE_SPECIFIC) {
        return Status::fromExceptionCode(exception, String8(message));
    }
    status = reply.readInt32(&code);
    return status == OK ? Status::fromServiceSpecificError(code, String8(message))
                        : Status::fromStatusT(status);
}

/** The same values, with graphic buffers of their own. */
Values fresh(Values values) {
    for (de::DeGraphicBuffer& buffer : values.buffers) {
        if (buffer.getGraphicBuffer() != nullptr) {
            buffer.setGraphicBuffer(newImage());
        }
    }
    return values;
}

void callAndCompare(const sp<Remote>& remote, RecordingService* fallback, uint32_t code,
                    const Values& arguments) {
    const Operation& operation = kServiceOperations[code - 1];
    Values given = fresh(arguments);
    Values expected = fresh(arguments);
    Parcel request;
    Parcel called;
    request.writeInterfaceToken(RecordingService::descriptor);
    expected.write(operation.request, &request);
    called.writeInt32(static_cast<int32_t>(code));
    expected.write(operation.request, &called);

    const sp<de::IDisplayEngineService> proxy = new de::BpDisplayEngineService(remote);
    fallback->call.freeData();
    const Status status = call(*proxy, code, &given);
    REQUIRE(remote->lastCode == code && remote->lastFlags == 0);
    REQUIRE(std::equal(request.data(), request.data() + request.dataSize(), remote->request.begin(),
                       remote->request.end()));

    Status outcome = Status::fromStatusT(remote->status);
    if (remote->status == UNKNOWN_TRANSACTION) {
        REQUIRE(same(fallback->call, called));
        outcome = call(*fallback, code, &expected);
    } else {
        REQUIRE(fallback->call.dataSize() == 0);
    }
    if (remote->status == OK) {
        Parcel reply;
        remote->answer->fill(&reply);
        outcome = readStatus(reply);
        const status_t read = outcome.isOk() ? expected.read(operation.reply, reply) : OK;
        outcome = read != OK ? Status::fromStatusT(read) : outcome;
    }
    Parcel left;
    Parcel right;
    REQUIRE(status.writeToParcel(&left) == outcome.writeToParcel(&right));
    given.write(kEverything, &left);
    expected.write(kEverything, &right);
    REQUIRE(same(left, right));
}

/** A default cannot be taken away again, so there is one from the beginning. */
RecordingService* makeDefault() {
    auto made = std::make_unique<RecordingService>();
    RecordingService* const kept = made.get();
    REQUIRE(de::IDisplayEngineService::setDefaultImpl(std::move(made)));
    return kept;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static RecordingService* const service = makeDefault();
    return requireNoLeak([&] {
        enum : uint8_t { EVERY_CUT = 2, FAILS = 4, UNKNOWN = 8 };
        FuzzedDataProvider data(bytes, size);
        const auto choice = data.ConsumeIntegral<uint8_t>();
        const uint32_t code = 1 + data.ConsumeIntegral<uint8_t>() % kServiceCodes;
        const auto error = data.ConsumeIntegral<int32_t>();
        const sp<Remote> remote = new Remote;
        if ((choice & FAILS) != 0) {
            remote->status = (choice & UNKNOWN) != 0 ? status_t{UNKNOWN_TRANSACTION} : error;
        }
        const Values arguments(data);
        service->answers = Values(data);
        service->outcome = makeStatus(data);
        Input answer(data);
        remote->answer = &answer;
        answer.eachCut((choice & EVERY_CUT) != 0,
                       [&] { callAndCompare(remote, service, code, arguments); });
        service->answers = Values();
        service->call.freeData();
    });
}
