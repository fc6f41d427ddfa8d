// SPDX-License-Identifier: Apache-2.0
// Any transaction upon both stubs: what reaches the implementation, and what is answered.
#include "support/Fuzzing.h"

using namespace fuzz;

namespace {

/** What a stub has to do with a request: the call that it makes, its reply and its result. */
status_t model(BBinder& stub, const Operation& operation, uint32_t code, const Parcel& request,
               const Status& outcome, Values* answers, Parcel* call, Parcel* reply) {
    if (!request.checkInterface(&stub)) {
        return BAD_TYPE;
    }
    Values arguments;
    status_t status = arguments.read(operation.request, request);
    if (status == OK) {
        call->writeInt32(static_cast<int32_t>(code));
        arguments.write(operation.request, call);
        if (operation.reply != nullptr) {
            status = outcome.writeToParcel(reply);
            if (status == OK && outcome.isOk()) {
                status = answers->write(operation.reply, reply);
            }
        }
    }
    return status == UNEXPECTED_NULL
               ? Status::fromExceptionCode(Status::EX_NULL_POINTER).writeToParcel(reply)
               : status;
}

template <typename STUB, size_t N>
void transact(STUB& stub, const Operation (&operations)[N], uint32_t code, uint32_t flags,
              const Parcel& request, Values* answers) {
    stub.call.freeData();
    Parcel call;
    Parcel reply;
    Parcel expected;
    const status_t status = stub.onTransact(code, request, &reply, flags);
    if (code >= 1 && code <= N) {
        request.setDataPosition(0);
        REQUIRE(status == model(stub, operations[code - 1], code, request, stub.outcome, answers,
                                &call, &expected));
    } else if (code == IBinder::INTERFACE_TRANSACTION) {
        REQUIRE(status == expected.writeString16(STUB::descriptor));
    } else if (code != IBinder::DUMP_TRANSACTION) {
        REQUIRE(status == (code == IBinder::PING_TRANSACTION ? status_t{OK} : UNKNOWN_TRANSACTION));
    }
    REQUIRE(same(stub.call, call));
    REQUIRE(code == IBinder::DUMP_TRANSACTION || same(reply, expected));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    return requireNoLeak([&] {
        enum : uint8_t { kToCallback = 1, kWithToken = 2, kEveryCut = 4 };
        FuzzedDataProvider data(bytes, size);
        const auto choice = data.ConsumeIntegral<uint8_t>();
        const bool toCallback = (choice & kToCallback) != 0;
        const auto code = data.ConsumeIntegral<uint32_t>();
        const auto flags = data.ConsumeIntegral<uint32_t>();
        const auto service = sp<RecordingService>(new RecordingService);
        const auto callback = sp<RecordingCallback>(new RecordingCallback);
        service->outcome = callback->outcome = makeStatus(data);
        service->answers = Values(data);
        Parcel front;
        if ((choice & kWithToken) != 0) {
            front.writeInterfaceToken(toCallback ? RecordingCallback::descriptor
                                                 : RecordingService::descriptor);
        }
        Input input(data, front);
        input.eachCut((choice & kEveryCut) != 0, [&] {
            Parcel request;
            if (!input.fill(&request)) {
                return;
            }
            if (toCallback) {
                transact(*callback, kCallbackOperations, code, flags, request, nullptr);
            } else {
                transact(*service, kServiceOperations, code, flags, request, &service->answers);
            }
        });
    });
}
