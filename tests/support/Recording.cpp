// SPDX-License-Identifier: Apache-2.0
#include "support/Recording.h"

#include <utils/String8.h>

#include <algorithm>

using android::GraphicBuffer;
using android::OK;
using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;

namespace protocol {

std::string hex(const android::Parcel& parcel) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < parcel.dataSize(); ++i) {
        const uint8_t byte = parcel.data()[i];
        text += i > 0 && i % 4 == 0 ? " " : "";
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text;
}

std::string text(int32_t value) {
    return " " + std::to_string(value);
}

std::string text(const PersistableBundle& data) {
    std::string result;
    for (const char* key : {"Key", "Feature", "Type", "Enable", "FPS", "forceEnable"}) {
        const std::string start = std::string(" ") + key + "=";
        String16 string;
        int32_t number = 0;
        bool flag = false;
        if (data.getString(String16(key), &string)) {
            result += start + android::String8(string).string();
        } else if (data.getInt(String16(key), &number)) {
            result += start + std::to_string(number);
        } else if (data.getBoolean(String16(key), &flag)) {
            result += start + (flag ? "true" : "false");
        }
    }
    return result;
}

std::string text(const RecordingService::Buffer& buffer) {
    const sp<GraphicBuffer> held = RecordingService::Buffer(buffer).getGraphicBuffer();
    return held == nullptr
               ? " none"
               : " " + std::to_string(held->getWidth()) + "x" + std::to_string(held->getHeight());
}

Status RecordingService::respond(const std::string& call, const Answer& to) {
    const auto outcome = outcomes.find(call.substr(0, call.find(' ')));
    if (outcome != outcomes.end()) {
        return outcome->second;
    }
    if (to.result != nullptr) {
        *to.result = to.value;
    }
    const auto change = [](auto* elements) {
        if (elements != nullptr) {
            std::reverse(elements->begin(), elements->end());
            elements->push_back(77);
        }
    };
    change(to.values);
    change(to.bytes);
    return Status::ok();
}

Status RecordingService::registerCallback(const Callback& callback) {
    const bool told = callback->onEvent(11, -12).transactionError() == OK &&
                      callback->onEventWithData(3, enable(true)).transactionError() == OK;
    return finish(std::string("registerCallback ") + (told ? "told" : "lost"));
}

Status RecordingService::processGraphicBuffer(Int feature, Int type, Buffer* input, Buffer* output,
                                              Int* result) {
    const std::string entry = call("processGraphicBuffer", feature, type, *input, *output);
    constexpr uint64_t kUsage = GraphicBuffer::USAGE_SW_WRITE_OFTEN;
    void* pixels = nullptr;
    const sp<GraphicBuffer> in = input->getGraphicBuffer();
    if (in != nullptr && in->lock(kUsage, &pixels) == OK) {
        auto* bytes = static_cast<uint8_t*>(pixels);
        std::for_each(bytes, bytes + in->getStride(), [](uint8_t& byte) { ++byte; });
        in->unlock();
    }
    output->setGraphicBuffer(new GraphicBuffer(4, 2, android::PIXEL_FORMAT_RGBA_8888, 1, kUsage));
    return finish(entry, {1012, result});
}

}  // namespace protocol
