// Any transaction upon both stubs: what reaches the implementation, and what is answered.
#include <cstring>

#include "support/Fuzzing.h"

using namespace android;
using namespace fuzz;

namespace {

/// The status as it has to stand in a reply, then the results of a layout.
status_t writeReply(const Status& status, Values* answers, const char* layout, Parcel* reply) {
    if (status.exceptionCode() == Status::EX_TRANSACTION_FAILED) {
        return status.transactionError();
    }
    reply->writeInt32(status.exceptionCode());
    if (status.isOk()) {
        return answers->write(layout, reply);
    }
    reply->writeString16(String16(status.exceptionMessage()));
    reply->writeInt32(0);
    if (status.exceptionCode() == Status::EX_SERVICE_SPECIFIC) {
        reply->writeInt32(status.serviceSpecificErrorCode());
    }
    return OK;
}

/// What a stub has to do with a request: the call that it makes, its reply and its result.
status_t model(const Operation& operation, uint32_t code, const String16& name,
               const Parcel& request, const Status& outcome, Values* answers, Parcel* call,
               Parcel* reply) {
    if (!request.enforceInterface(name)) {
        return BAD_TYPE;
    }
    Values arguments;
    status_t status = arguments.read(operation.request, request);
    if (status == OK) {
        call->writeInt32(static_cast<int32_t>(code));
        arguments.write(operation.request, call);
        if (operation.reply != nullptr) {
            status = writeReply(outcome, answers, operation.reply, reply);
        }
    }
    if (status == UNEXPECTED_NULL) {
        const Status null = Status::fromExceptionCode(Status::EX_NULL_POINTER);
        return writeReply(null, answers, "", reply);
    }
    return status;
}

template <typename STUB, size_t N>
void transact(STUB& stub, const Operation (&operations)[N], uint32_t code, uint32_t flags,
              const Parcel& request, Values* answers) {
    stub.call.freeData();
    Parcel call, reply, expected;
    const status_t status = stub.onTransact(code, request, &reply, flags);
    request.setDataPosition(0);
    if (code >= 1 && code <= N) {
        REQUIRE(status == model(operations[code - 1], code, STUB::descriptor, request, stub.outcome,
                                answers, &call, &expected));
    } else if (code == IBinder::INTERFACE_TRANSACTION) {
        REQUIRE(status == OK);
        expected.writeString16(STUB::descriptor);
    } else if (code == IBinder::PING_TRANSACTION) {
        REQUIRE(status == OK);
    } else if (code != IBinder::DUMP_TRANSACTION) {
        REQUIRE(status == UNKNOWN_TRANSACTION);
    } else if (status == OK && reply.dataSize() > 0) {
        expected.writeInt32(Status::EX_NULL_POINTER);  // for a missing argument of the dump
        expected.write("\0\0\0\0\0\0\0\0\0\0\0", 12);
    }
    REQUIRE(same(stub.call, call));
    REQUIRE(same(reply, expected));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static RecordingService* const service = new RecordingService;
    static RecordingCallback* const callback = new RecordingCallback;
    const size_t open = openDescriptors();
    {
        FuzzedDataProvider data(bytes, size);
        enum : uint8_t { kToCallback = 1, kWithToken = 2, kEveryCut = 4 };
        const auto choice = data.ConsumeIntegral<uint8_t>();
        const auto code = data.ConsumeIntegral<uint32_t>();
        const auto flags = data.ConsumeIntegral<uint32_t>();
        service->outcome = callback->outcome = makeStatus(data, true);
        service->answers = makeValues(data);
        Parcel front;
        if ((choice & kWithToken) != 0) {
            front.writeInterfaceToken((choice & kToCallback) != 0 ? RecordingCallback::descriptor
                                                                  : RecordingService::descriptor);
        }
        Input input(data, front);
        input.eachCut((choice & kEveryCut) != 0, [&] {
            Parcel request;
            if (!input.fill(&request)) {
                return;
            }
            if ((choice & kToCallback) != 0) {
                transact(*callback, kCallbackOperations, code, flags, request, nullptr);
            } else {
                transact(*service, kServiceOperations, code, flags, request, &service->answers);
            }
        });
        service->call.freeData();
        callback->call.freeData();
        service->answers = Values();
    }
    REQUIRE(openDescriptors() == open);
    return 0;
}
