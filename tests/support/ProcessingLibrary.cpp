// SPDX-License-Identifier: Apache-2.0
#include "support/ProcessingLibrary.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include "support/Lines.h"
#include "support/ThreadState.h"

namespace processing {

namespace {

constexpr int32_t kWidth = 32;
constexpr int32_t kHeight = 16;
constexpr int32_t kStride = 64;

// Never destroyed: a library may still be called while the process exits.
struct Recorder {
    std::mutex mutex;
    std::vector<Call> calls;
    Hook hook;
    Lines texts;
};

Recorder& recorder() {
    static Recorder& theRecorder = *new Recorder;
    return theRecorder;
}

AisrBuffer frameOf(int32_t tag, const void* data) {
    AisrBuffer buffer{};
    if (tag == AISR_TAG_SET_TIMEOUT) {
        std::memcpy(&buffer, data, sizeof(buffer));
    } else if (tag == AISR_TAG_SET_BUF) {
        const auto* list = static_cast<const AisrBufferList*>(data);
        const void* node = list->ends.next;
        buffer = static_cast<const AisrBufferNode*>(node)->buffer;
    }
    return buffer;
}

}  // namespace

std::string Call::text() const {
    return entry == "AisrSetParam" ? entry + "(" + std::to_string(tag) + ")" : entry;
}

void use(const std::string& build) {
    const std::string root = build.empty() ? "/nowhere" : PROCESSING_BUILDS "/" + build;
    setenv("DISPLAYENGINE_SYSTEM_ROOT", root.c_str(), 1);
    setHook(nullptr);
    takeTexts();
}

void setHook(Hook hook) {
    const std::lock_guard<std::mutex> lock(recorder().mutex);
    recorder().hook = std::move(hook);
}

void hold(const std::string& text, Gate* gate) {
    setHook([=](const Call& call) {
        if (call.text() == text) {
            gate->pass();
        }
        return 0;
    });
}

std::vector<Call> calls() {
    const std::lock_guard<std::mutex> lock(recorder().mutex);
    return recorder().calls;
}

std::vector<std::string> takeTexts() {
    const std::lock_guard<std::mutex> lock(recorder().mutex);
    recorder().calls.clear();
    return recorder().texts.take();
}

size_t count(const std::string& text) {
    return recorder().texts.count(text);
}

void waitFor(const std::string& text, size_t times) {
    recorder().texts.waitFor(text, times);
}

void endSession() {
    setHook(nullptr);
    const std::string path = getenv("DISPLAYENGINE_SYSTEM_ROOT") +
                             std::string("/system/lib64/libAISRProcess_interface.so");
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
    reinterpret_cast<int32_t (*)(void**)>(dlsym(library, "AisrDeinit"))(calls().back().context);
    dlclose(library);
}

void Gate::open() {
    const std::lock_guard<std::mutex> lock(mMutex);
    mIsOpen = true;
    mOpened.notify_all();
}

void Gate::pass() {
    std::unique_lock<std::mutex> lock(mMutex);
    waitUntil(mOpened, lock, "a gate to be opened", [this] { return mIsOpen; });
}

Frame::Frame() : mPlanes(static_cast<size_t>(kStride * kHeight * 3 / 2), 0x80) {}

Aisr::BufferInfo Frame::info(uint64_t id) {
    return {id, mPlanes.data(), mPlanes.data() + kStride * kHeight, kWidth, kHeight, kStride, 0};
}

}  // namespace processing

extern "C" int32_t aisrControlledEntry(const char* entry, void** context, int32_t tag,
                                       const void* data, uint64_t size) {
    using processing::recorder;
    const auto* bytes = static_cast<const uint8_t*>(data);
    const processing::Call call{
        entry, context,
        tag,   data == nullptr ? std::vector<uint8_t>() : std::vector<uint8_t>(bytes, bytes + size),
        data,  processing::frameOf(tag, data)};
    processing::Hook hook;
    {
        const std::lock_guard<std::mutex> lock(recorder().mutex);
        recorder().calls.push_back(call);
        recorder().texts.add(call.text());
        hook = recorder().hook;
    }
    return hook ? hook(call) : 0;
}
