// SPDX-License-Identifier: Apache-2.0
// A client process in small, built against the installed library alone.
#include <binder/PersistableBundle.h>

#include <cstdio>
#include <string>

#include "aidl/BnDisplayEngineCallback.h"
#include "aisr/AisrAlgorithm.h"
#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/DisplayEngineCleanCommon.h"

// What the README's examples leave to their reader; the examples are part of this program.

void play(int width, int height, int fps);

bool decode(Aisr::BufferInfo*) {
    return false;
}

void show(const Aisr::BufferInfo&) {}

bool setBacklight(int32_t) {
    return true;
}

namespace {

class Events : public com::tivora::displayengine::BnDisplayEngineCallback {
public:
    android::binder::Status onEvent(int32_t, int32_t) override { return {}; }
    android::binder::Status onEventWithData(int32_t,
                                            const android::os::PersistableBundle&) override {
        return {};
    }
};

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
    failures += check(android::sp<Events>(new Events())->getInterfaceDescriptor() ==
                          com::tivora::displayengine::IDisplayEngineCallback::descriptor,
                      "callback of its own");
    failures += check(checkDisplayEngineService() == nullptr, "no service found");
    failures += check(!display->isVideoEngineSupported(), "no enhancement without a service");
    play(640, 360, 30);
    return failures == 0 ? 0 : 1;
}
