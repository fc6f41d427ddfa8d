// A processing library that takes the submitted frames for a list of its C++ runtime, as the
// device's does, and reports what it finds in there.
#include "libcxx/SubmittedFrames.h"

namespace {

using runtime_list::Frames;

struct Session {
    const Frames* frames = nullptr;
    uint64_t dataSize = 0;
};

constexpr int32_t kSetBuffer = 2;

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int32_t AisrInit(void** context) {
    *context = new Session;
    return 0;
}

__attribute__((visibility("default"))) int32_t AisrDeinit(void** context) {
    delete static_cast<Session*>(*context);
    *context = nullptr;
    return 0;
}

// Walks the list only here: it has to last until the process call has returned.
__attribute__((visibility("default"))) int32_t AisrProcess(void** context) {
    const auto& session = *static_cast<Session*>(*context);
    const Frames& frames = *session.frames;
    runtimeListProcessed({session.dataSize,
                          frames.size(),
                          {frames.begin(), frames.end()},
                          {frames.rbegin(), frames.rend()}});
    return 0;
}

__attribute__((visibility("default"))) int32_t AisrSetParam(void** context, int32_t tag,
                                                            const void* data, uint64_t size) {
    if (tag == kSetBuffer) {
        *static_cast<Session*>(*context) = {static_cast<const Frames*>(data), size};
    }
    return 0;
}

__attribute__((visibility("default"))) int32_t AisrGetParam() {
    return 0;
}

__attribute__((visibility("default"))) int32_t AisrDoClean() {
    return 0;
}

}  // extern "C"
