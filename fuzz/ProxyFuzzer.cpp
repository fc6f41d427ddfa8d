// SPDX-License-Identifier: Apache-2.0
// The service's proxy before a remote end that answers anything: what is made of the answer, and
// that the default implementation is asked when the remote end does not know the transaction.
#include <memory>

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
Status model(const Remote& remote, const Operation& operation, Values* results) {
    Status outcome = Status::fromStatusT(remote.status);
    if (remote.status != OK) {
        return outcome;
    }
    Parcel reply;
    remote.answer->fill(&reply);
    if (outcome.readFromParcel(reply) != OK || !outcome.isOk()) {
        return outcome;
    }
    return Status::fromStatusT(operation.reply(*results, reply));
}

std::string text(const Status& status) {
    Parcel parcel;
    REQUIRE(status.writeToParcel(&parcel) == status.transactionError());
    return protocol::hex(parcel);
}

void callAndCompare(const sp<Remote>& remote, protocol::RecordingService* fallback, uint32_t code) {
    const protocol::Operation& called = protocol::kOperations[code - 1];
    const auto proxy = de::IDisplayEngineService::asInterface(remote);
    protocol::Results given;
    const Status status = called.run(*proxy, &given, new protocol::RecordingCallback);
    touch(given.input.getGraphicBuffer());
    touch(given.output.getGraphicBuffer());
    const std::vector<std::string> asked = fallback->journal.take();
    if (remote->status == UNKNOWN_TRANSACTION) {
        REQUIRE(asked == std::vector<std::string>{called.call});
        REQUIRE(status.isOk() && given.text() == called.results);
        return;
    }
    Values expected;
    const Status outcome = model(*remote, kServiceOperations[code - 1], &expected);
    REQUIRE(asked.empty());
    REQUIRE(status.transactionError() == outcome.transactionError());
    REQUIRE(text(status) == text(outcome));
    REQUIRE(given.text() == expected.text());
}

/** A default cannot be taken away again, so there is one from the beginning. */
protocol::RecordingService* makeDefault() {
    auto made = std::make_unique<protocol::RecordingService>();
    protocol::RecordingService* const kept = made.get();
    REQUIRE(de::IDisplayEngineService::setDefaultImpl(std::move(made)));
    return kept;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    static protocol::RecordingService* const fallback = makeDefault();
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
        Input answer(data);
        remote->answer = &answer;
        answer.eachCut((choice & EVERY_CUT) != 0, [&] { callAndCompare(remote, fallback, code); });
    });
}
