// SPDX-License-Identifier: Apache-2.0
#include "Commands.h"

#include <binder/IInterface.h>
#include <binder/PersistableBundle.h>
#include <binder/ProcessState.h>

#include "LibraryLog.h"
#include "aidl/BnDisplayEngineCallback.h"
#include "tools/support/StopSignal.h"

using android::IBinder;
using android::sp;
using android::os::PersistableBundle;

namespace control {
namespace {

class StopOnDeath : public IBinder::DeathRecipient {
public:
    void binderDied(const android::wp<IBinder>&) override { stop.request(); }

    const StopSignal stop;
};

/**
 * Events come in order, one at a time, on a binder thread; the last may still be printed while the
 * process exits, so nothing here belongs to the session.
 */
class EventPrinter : public com::tivora::displayengine::BnDisplayEngineCallback {
public:
    explicit EventPrinter(const Output& output) : mOutput(output) {}

    android::binder::Status onEvent(int32_t event, int32_t value) override {
        mOutput.printEvent({{"event", event}, {"value", value}});
        return {};
    }
    android::binder::Status onEventWithData(int32_t event, const PersistableBundle& data) override {
        mOutput.printEvent({{"event", event}, {"data", entriesOf(data)}});
        return {};
    }

private:
    const Output mOutput;
};

}  // namespace

Outcome watchEvents(Session& session) {
    android::ProcessState::self()->startThreadPool();
    const sp<StopOnDeath> death = new StopOnDeath;
    const sp<EventPrinter> printer = new EventPrinter(session.output);
    if (android::IInterface::asBinder(session.service)->linkToDeath(death) != android::OK) {
        return {};
    }
    session.display->registerCallback(printer);
    if (hasLoggedFailure()) {
        return {nullptr, "the registration of a callback"};
    }
    return {nullptr, {}, [death, printer, display = session.display] {
                death->stop.waitUntil(std::chrono::steady_clock::time_point::max());
                display->unregisterCallback(printer);
            }};
}

}  // namespace control
