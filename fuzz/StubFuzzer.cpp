// SPDX-License-Identifier: Apache-2.0
// Any transaction upon both stubs: what reaches the implementation, and what is answered.
#include "support/Fuzzing.h"

using namespace fuzz;

namespace {

/** Uses the whole of the images that it is given. */
class Service : public protocol::RecordingService {
public:
    static constexpr auto& kOperations = kServiceOperations;

    Status processGraphicBuffer(Int feature, Int type, Buffer* input, Buffer* output,
                                Int* result) override {
        touch(input->getGraphicBuffer());
        touch(output->getGraphicBuffer());
        return RecordingService::processGraphicBuffer(feature, type, input, output, result);
    }
};

class Callback : public protocol::RecordingCallback {
public:
    static constexpr auto& kOperations = kCallbackOperations;

    Lines& journal = *this;
};

/** What a stub has to say to a request; OK is for one that reaches the implementation. */
status_t judge(BBinder& stub, const Operation& operation, const Parcel& request) {
    Values arguments;
    request.setDataPosition(0);
    return request.checkInterface(&stub) ? operation.request(arguments, request) : BAD_TYPE;
}

/** Requires a whole reply and nothing behind it. */
void requireReply(const Operation& operation, status_t judgement, const Parcel& reply) {
    reply.setDataPosition(0);
    if (judgement == UNEXPECTED_NULL || (judgement == OK && operation.reply != nullptr)) {
        Values results;
        Status outcome;
        REQUIRE(outcome.readFromParcel(reply) == OK);
        REQUIRE(outcome.exceptionCode() ==
                (judgement == OK ? Status::EX_NONE : Status::EX_NULL_POINTER));
        REQUIRE(judgement != OK || operation.reply(results, reply) == OK);
    }
    REQUIRE(reply.dataAvail() == 0);
}

template <typename STUB>
void transact(FuzzedDataProvider& data, bool hasToken, bool everyCut) {
    const auto code = data.ConsumeIntegral<uint32_t>();
    const auto flags = data.ConsumeIntegral<uint32_t>();
    Parcel front;
    if (hasToken) {
        front.writeInterfaceToken(STUB::descriptor);
    }
    Input input(data, front);
    const sp<STUB> stub = new STUB;
    input.eachCut(everyCut, [&] {
        Parcel request;
        if (!input.fill(&request)) {
            return;
        }
        Parcel reply;
        const status_t status = stub->onTransact(code, request, &reply, flags);
        const size_t calls = stub->journal.take().size();
        if (code < 1 || code > std::size(STUB::kOperations)) {
            REQUIRE(calls == 0);
            return;
        }
        const Operation& operation = STUB::kOperations[code - 1];
        const status_t judgement = judge(*stub, operation, request);
        REQUIRE(calls == (judgement == OK ? 1 : 0));
        REQUIRE(status == (judgement == UNEXPECTED_NULL ? status_t{OK} : judgement));
        requireReply(operation, judgement, reply);
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
            transact<Callback>(data, hasToken, everyCut);
        } else {
            transact<Service>(data, hasToken, everyCut);
        }
    });
}
