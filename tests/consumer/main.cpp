// A client process in small, built against the installed library alone.
#include <binder/PersistableBundle.h>

#include <cstdio>
#include <string>

#include "aidl/BnDisplayEngineCallback.h"
#include "aisr/AisrAlgorithm.h"
#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/DisplayEngineCleanCommon.h"

namespace {

using android::binder::Status;
using com::tivora::displayengine::IDisplayEngineCallback;

class Events : public com::tivora::displayengine::BnDisplayEngineCallback {
public:
    Status onEvent(int32_t event, int32_t value) override {
        sum = event + value;
        return Status::ok();
    }
    Status onEventWithData(int32_t, const android::os::PersistableBundle&) override {
        return Status::ok();
    }

    int32_t sum = 0;
};

bool receivesEvents() {
    const android::sp<Events> events = new Events();
    android::Parcel request;
    android::Parcel reply;
    request.writeInterfaceToken(IDisplayEngineCallback::descriptor);
    request.writeInt32(40);
    request.writeInt32(2);
    return events->transact(android::IBinder::FIRST_CALL_TRANSACTION, request, &reply, 0) ==
               android::OK &&
           events->sum == 42;
}

int check(bool passed, const char* what) {
    std::printf("%s: %s\n", what, passed ? "ok" : "failed");
    return passed ? 0 : 1;
}

}  // namespace

int main() {
    Aisr::BufferInfo frame{0x7b3f, nullptr, nullptr, 640, 360, 704, 3};
    const android::sp<DisplayEngineManager> display = new DisplayEngineManager();
    int failures = check(AisrAlgorithm::rectToString(frame) == "640(704)x360", "text of a frame");
    failures += check(!g_delogdEnable, "log switches");
    failures += check(receivesEvents(), "events of a callback");
    failures += check(checkDisplayEngineService() == nullptr, "no service found");
    failures += check(!display->isVideoEngineSupported(), "no enhancement without a service");
    return failures == 0 ? 0 : 1;
}
