// SPDX-License-Identifier: Apache-2.0
#include "Commands.h"

#include <binder/IInterface.h>
#include <binder/PersistableBundle.h>
#include <binder/ProcessState.h>
#include <semaphore.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <csignal>

#include "LibraryLog.h"
#include "aidl/BnDisplayEngineCallback.h"

using android::IBinder;
using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;

namespace control {
namespace {

// Posted by the signals' handler, hence not a member, and a semaphore.
sem_t gEnd;

void endBySignal(int) {
    sem_post(&gEnd);
}

class EndByDeath : public IBinder::DeathRecipient {
public:
    void binderDied(const android::wp<IBinder>&) override { sem_post(&gEnd); }
};

/** The entries that the service's interface names; a bundle does not list its keys. */
Json entriesOf(const PersistableBundle& data) {
    Json entries = Json::object();
    for (const char* key : {"Enable", "Feature", "Key", "Type", "forceEnable", "FPS"}) {
        const String16 name(key);
        bool flag = false;
        int32_t number = 0;
        String16 text;
        if (data.getBoolean(name, &flag)) {
            entries[key] = flag;
        } else if (data.getInt(name, &number)) {
            entries[key] = number;
        } else if (data.getString(name, &text)) {
            entries[key] = android::String8(text).string();
        }
    }
    return entries;
}

/**
 * Events come in order, one at a time, on a binder thread; the last may still be printed while the
 * process exits, so nothing here belongs to the session.
 */
class EventPrinter : public com::tivora::displayengine::BnDisplayEngineCallback {
public:
    explicit EventPrinter(const Output& output) : mOutput(output) {}

    Status onEvent(int32_t event, int32_t value) override {
        mOutput.printEvent({{"event", event}, {"value", value}});
        return Status::ok();
    }
    Status onEventWithData(int32_t event, const PersistableBundle& data) override {
        mOutput.printEvent({{"event", event}, {"data", entriesOf(data)}});
        return Status::ok();
    }

private:
    const Output mOutput;
};

void endOnSignals() {
    sem_init(&gEnd, 0, 0);
    struct sigaction action = {};
    action.sa_handler = endBySignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

Outcome watchEvents(Session& session) {
    endOnSignals();
    android::ProcessState::self()->startThreadPool();
    const sp<EndByDeath> death = new EndByDeath;
    const sp<EventPrinter> printer = new EventPrinter(session.output);
    if (android::IInterface::asBinder(session.service)->linkToDeath(death) != android::OK) {
        return {};
    }
    session.display->registerCallback(printer);
    if (hasLoggedFailure()) {
        return {nullptr, "the registration of a callback"};
    }
    while (sem_wait(&gEnd) != 0) {
        // Interrupted by a signal whose handler has not posted yet.
    }
    session.display->unregisterCallback(printer);
    return {};
}

}  // namespace control
