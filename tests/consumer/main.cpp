// SPDX-License-Identifier: Apache-2.0
// A client process in small, built against the installed library alone.
#include <cstdio>
#include <memory>

#include "aisr/AisrAlgorithm.h"
#include "client/DisplayEngineManager.h"
#include "client/ServiceConnection.h"
#include "common/DisplayEngineCleanCommon.h"
#include "media/VideoSession.h"

// What the README's examples leave to their reader; the examples are part of this program.

void play(int width, int height, int fps);
void playInSession(int width, int height, double fps);
struct Picture;

bool decode(Aisr::BufferInfo*) {
    return false;
}

void show(const Aisr::BufferInfo&) {}

std::shared_ptr<Picture> decode() {
    return nullptr;
}

void show(const Picture&) {}

bool setBacklight(int32_t) {
    return true;
}

int main() {
    using displayengine::media::Reason;
    using displayengine::media::VideoSession;
    const Aisr::BufferInfo frame{0x7b3f, nullptr, nullptr, 640, 360, 704, 3};
    const android::sp<DisplayEngineManager> display = new DisplayEngineManager();
    playInSession(640, 360, 30);
    play(640, 360, 30);
    const bool isRight = AisrAlgorithm::rectToString(frame) == "640(704)x360" && !g_delogdEnable &&
                         checkDisplayEngineService() == nullptr &&
                         !display->isVideoEngineSupported() &&
                         VideoSession::open({})->wanted().reason == Reason::kNoService;
    std::puts(isRight ? "ok"
                      : "the text of a frame, the log switches or the service are not right");
    return isRight ? 0 : 1;
}
