// SPDX-License-Identifier: Apache-2.0
// Any transaction upon both stubs: what reaches the implementation, and what is answered.
#include "support/Fuzzing.h"

using namespace fuzz;

namespace {

/** What a stub has to do with a request: the call that it makes, its reply and its result. */
template <typename STUB>
status_t model(STUB& stub, const Operation& operation, uint32_t code, const Parcel& request,
               Parcel* call, Parcel* reply) {
    if (!request.checkInterface(&stub)) {
        return BAD_TYPE;
    }
    Values arguments;
    status_t status = operation.request.read(arguments, request);
    if (status == UNEXPECTED_NULL) {
        return Status::fromExceptionCode(Status::EX_NULL_POINTER).writeToParcel(reply);
    }
    if (status != OK) {
        return status;
    }
    call->writeInt32(static_cast<int32_t>(code));
    operation.request.write(arguments, *call);
    if (operation.reply.write == nullptr) {
        return OK;
    }
    status = stub.outcome.writeToParcel(reply);
    return status == OK && stub.outcome.isOk() ? operation.reply.write(stub.answers, *reply)
                                               : status;
}

template <typename STUB, size_t N>
void transact(FuzzedDataProvider& data, const Operation (&operations)[N], bool hasToken,
              bool everyCut) {
    const auto code = data.ConsumeIntegral<uint32_t>();
    const auto flags = data.ConsumeIntegral<uint32_t>();
    const sp<STUB> stub = new STUB;
    stub->outcome = makeStatus(data);
    stub->answers = Values(data);
    Parcel front;
    if (hasToken) {
        front.writeInterfaceToken(STUB::descriptor);
    }
    Input input(data, front);
    input.eachCut(everyCut, [&] {
        Parcel request;
        if (!input.fill(&request)) {
            return;
        }
        stub->call.freeData();
        Parcel call;
        Parcel reply;
        Parcel expected;
        const status_t status = stub->onTransact(code, request, &reply, flags);
        if (code >= 1 && code <= N) {
            request.setDataPosition(0);
            REQUIRE(status == model(*stub, operations[code - 1], code, request, &call, &expected));
            REQUIRE(same(reply, expected));
        }
        REQUIRE(same(stub->call, call));
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    return requireNoLeak([&] {
        enum : uint8_t { TO_CALLBACK = 1, HAS_TOKEN = 2, EVERY_CUT = 4 };
        FuzzedDataProvider data(bytes, size);
        const auto choice = data.ConsumeIntegral<uint8_t>();
        const bool hasToken = (choice & HAS_TOKEN) != 0;
        const bool everyCut = (choice & EVERY_CUT) != 0;
        if ((choice & TO_CALLBACK) != 0) {
            transact<RecordingCallback>(data, kCallbackOperations, hasToken, everyCut);
        } else {
            transact<RecordingService>(data, kServiceOperations, hasToken, everyCut);
        }
    });
}
