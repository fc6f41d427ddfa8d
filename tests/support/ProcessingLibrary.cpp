// SPDX-License-Identifier: Apache-2.0
#include "support/ProcessingLibrary.h"

#include <dlfcn.h>

#include <cstdlib>
#include <mutex>
#include <utility>

#include "support/Lines.h"

namespace processing {

namespace {

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

}  // namespace processing

extern "C" int32_t aisrControlledEntry(const char* entry, void** context, int32_t tag,
                                       const void* data, uint64_t size) {
    using processing::recorder;
    const auto* bytes = static_cast<const uint8_t*>(data);
    const processing::Call call{entry, context, tag, {bytes, bytes + size}, data};
    processing::Hook hook;
    {
        const std::lock_guard<std::mutex> lock(recorder().mutex);
        recorder().calls.push_back(call);
        recorder().texts.add(call.text());
        hook = recorder().hook;
    }
    return hook ? hook(call) : 0;
}
