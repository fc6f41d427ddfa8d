// SPDX-License-Identifier: Apache-2.0
// The service's proxy before a remote end that answers anything: what is made of the answer, and
// what a default implementation is asked instead.
#include <memory>

#include "aidl/BpDisplayEngineService.h"
#include "support/Fuzzing.h"

using namespace fuzz;

namespace {

/** Answers with an input. */
class Remote : public BBinder {
public:
    const Input* answer = nullptr;
    status_t status = OK;

protected:
    status_t onTransact(uint32_t /*code*/, const Parcel& /*data*/, Parcel* reply,
                        uint32_t /*flags*/) override {
        answer->fill(reply);
        return status;
    }
};

/** What a proxy has to make of the answer. */
Status model(const Remote& remote, RecordingService* fallback, const Operation& operation,
             Values* values) {
    if (remote.status == UNKNOWN_TRANSACTION) {
        return operation.call(*fallback, *values);
    }
    Status outcome = Status::fromStatusT(remote.status);
    if (remote.status == OK) {
        Parcel reply;
        remote.answer->fill(&reply);
        outcome.readFromParcel(reply);
        const status_t read = outcome.isOk() ? operation.reply.read(*values, reply) : OK;
        if (read != OK) {
            outcome = Status::fromStatusT(read);
        }
    }
    return outcome;
}

/** The same values, with graphic buffers of their own. */
Values fresh(Values values) {
    for (de::DeGraphicBuffer* const buffer : {&values.input, &values.output}) {
        if (buffer->getGraphicBuffer() != nullptr) {
            buffer->setGraphicBuffer(newImage());
        }
    }
    return values;
}

void callAndCompare(const sp<Remote>& remote, RecordingService* fallback, uint32_t code,
                    const Values& arguments) {
    const Operation& operation = kServiceOperations[code - 1];
    const sp<de::IDisplayEngineService> proxy = new de::BpDisplayEngineService(remote);
    Values given = fresh(arguments);
    Values expected = fresh(arguments);
    Parcel asked;
    if (remote->status == UNKNOWN_TRANSACTION) {
        asked.writeInt32(static_cast<int32_t>(code));
        operation.request.write(arguments, asked);
    }
    fallback->call.freeData();
    const Status status = operation.call(*proxy, given);
    REQUIRE(same(fallback->call, asked));

    const Status outcome = model(*remote, fallback, operation, &expected);
    Parcel left;
    Parcel right;
    REQUIRE(status.writeToParcel(&left) == outcome.writeToParcel(&right));
    kEverything.write(given, left);
    kEverything.write(expected, right);
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
        const uint32_t code = 1 + data.ConsumeIntegral<uint8_t>() % de::kServiceCodeCount;
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
