// SPDX-License-Identifier: Apache-2.0
// Objects of the two interfaces that keep what they are called with.
#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <binder/PersistableBundle.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "aidl/BnDisplayEngineCallback.h"
#include "aidl/BnDisplayEngineService.h"
#include "support/Lines.h"

namespace protocol {

/** The data of a registration. */
inline android::os::PersistableBundle registration(const char* key) {
    android::os::PersistableBundle data;
    data.putString(android::String16("Key"), android::String16(key));
    data.putInt(android::String16("Feature"), 44);
    return data;
}

/** The data of an event that switches the engine. */
inline android::os::PersistableBundle enable(bool on) {
    android::os::PersistableBundle data;
    data.putBoolean(android::String16("Enable"), on);
    return data;
}

/** A parcel's bytes as text, in groups of four: "05000000 ff". Layouts are written this way. */
inline std::string hex(const android::Parcel& parcel) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < parcel.dataSize(); ++i) {
        const uint8_t byte = parcel.data()[i];
        text += i > 0 && i % 4 == 0 ? " " : "";
        text += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return text;
}

/** An argument as a call's record shows it: " 7", " [ 1 2 ]", " Key=player Feature=44". */
inline std::string text(int32_t value) {
    return " " + std::to_string(value);
}
inline std::string text(const android::os::PersistableBundle& data) {
    std::string result;
    for (const char* key : {"Key", "Feature", "Type", "Enable", "FPS", "forceEnable"}) {
        const std::string start = std::string(" ") + key + "=";
        android::String16 string;
        int32_t number = 0;
        bool flag = false;
        if (data.getString(android::String16(key), &string)) {
            result += start + android::String8(string).string();
        } else if (data.getInt(android::String16(key), &number)) {
            result += start + std::to_string(number);
        } else if (data.getBoolean(android::String16(key), &flag)) {
            result += start + (flag ? "true" : "false");
        }
    }
    return result;
}
/** Of a buffer, the width, or 0 for none. */
inline std::string text(com::tivora::displayengine::DeGraphicBuffer buffer) {
    const android::sp<android::GraphicBuffer> held = buffer.getGraphicBuffer();
    return text(held == nullptr ? 0 : static_cast<int32_t>(held->getWidth()));
}
/** Of a long vector, the length: " [255]". */
template <typename T>
std::string text(const std::vector<T>& values) {
    if (values.size() > 8) {
        return " [" + std::to_string(values.size()) + "]";
    }
    std::string result = " [";
    for (const T value : values) {
        result += text(static_cast<int32_t>(value));
    }
    return result + " ]";
}

template <typename... ARGUMENTS>
std::string call(const char* name, const ARGUMENTS&... arguments) {
    return (name + ... + text(arguments));
}

/** What an operation answers, and where; null where it has no such result. */
struct Answer {
    int32_t value = 0;
    int32_t* result = nullptr;
    std::vector<int32_t>* values = nullptr;
    std::vector<uint8_t>* bytes = nullptr;
};

/** Answers every operation with 1000 + its code, vectors reversed and one longer. */
class RecordingService : public com::tivora::displayengine::BnDisplayEngineService {
public:
    using Status = android::binder::Status;
    using Bundle = android::os::PersistableBundle;
    using Callback = android::sp<com::tivora::displayengine::IDisplayEngineCallback>;
    using Buffer = com::tivora::displayengine::DeGraphicBuffer;
    using Int = int32_t;

    Lines journal; /**< What it has been called with. */
    /** Of the operations that do not answer ok, by name; set while no call is under way. */
    std::map<std::string, Status> outcomes;

    Status getSupported(Int feature, Int* result) override {
        return finish(call("getSupported", feature), {1001, result});
    }
    Status setScene(Int scene, Int value, Int* result) override {
        return finish(call("setScene", scene, value), {1002, result});
    }
    Status setData(Int type, const Bundle& data, Int* result) override {
        return finish(call("setData", type, data), {1003, result});
    }
    Status getEffectEx(Int feature, Int type, std::vector<Int>* status, Int length,
                       Int* result) override {
        return finish(call("getEffectEx", feature, type, *status, length), {1004, result, status});
    }
    Status getEffect(Int feature, Int type, std::vector<uint8_t>* buffer, Int length,
                     Int* result) override {
        return finish(call("getEffect", feature, type, *buffer, length),
                      {1005, result, nullptr, buffer});
    }
    Status getEffectExByData(Int feature, const Bundle& data, std::vector<Int>* status,
                             Int* result) override {
        return finish(call("getEffectExByData", feature, data, *status), {1006, result, status});
    }
    Status setEffect(Int feature, Int type, const Bundle& data, Int* result) override {
        return finish(call("setEffect", feature, type, data), {1007, result});
    }
    /** Calls the callback with both events before it returns. */
    Status registerCallback(const Callback& callback) override {
        const bool told =
            callback->onEvent(11, -12).transactionError() == android::OK &&
            callback->onEventWithData(3, enable(true)).transactionError() == android::OK;
        return finish(std::string("registerCallback ") + (told ? "told" : "lost"));
    }
    Status registerCallbackEx(const Callback& callback, const Bundle& data, bool* result) override {
        *result = callback != nullptr;
        return finish(call("registerCallbackEx", data));
    }
    Status unregisterCallback(const Callback&) override { return finish("unregisterCallback"); }
    Status unregisterCallbackEx(const Bundle& data) override {
        return finish(call("unregisterCallbackEx", data));
    }
    /** Gives the output a new 4 x 2 buffer. */
    Status processGraphicBuffer(Int feature, Int type, Buffer* input, Buffer* output,
                                Int* result) override {
        const std::string entry = call("processGraphicBuffer", feature, type, *input, *output);
        output->setGraphicBuffer(
            new android::GraphicBuffer(4, 2, android::PIXEL_FORMAT_RGBA_8888, 1,
                                       android::GraphicBuffer::USAGE_SW_WRITE_OFTEN));
        return finish(entry, {1012, result});
    }

protected:
    /** Gives the outcome, or else the usual answer; its Status is the operation's. */
    virtual Status respond(const std::string& call, const Answer& to) {
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

private:
    Status finish(const std::string& call, const Answer& to = Answer()) {
        journal.add(call);
        return respond(call, to);
    }
};

class RecordingCallback : public com::tivora::displayengine::BnDisplayEngineCallback, public Lines {
public:
    /** Both answer with an exception, which no caller of another process may ever see. */
    RecordingService::Status onEvent(int32_t event, int32_t value) override {
        return finish(call("onEvent", event, value));
    }
    RecordingService::Status onEventWithData(int32_t event,
                                             const RecordingService::Bundle& data) override {
        return finish(call("onEventWithData", event, data));
    }

private:
    RecordingService::Status finish(const std::string& call) {
        add(call);
        return RecordingService::Status::fromExceptionCode(
            RecordingService::Status::EX_ILLEGAL_STATE);
    }
};

}  // namespace protocol
