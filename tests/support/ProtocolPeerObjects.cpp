#include "support/ProtocolPeerObjects.h"

#include <utils/String16.h>
#include <utils/String8.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::binder::Status;
using android::os::PersistableBundle;

namespace protocol {
namespace {

constexpr std::chrono::seconds kPatience{10};

std::string text(int32_t value) {
    return " " + std::to_string(value);
}

template <typename T>
std::string text(const std::vector<T>& values) {
    std::string result = " [";
    for (const T value : values) {
        result += text(static_cast<int32_t>(value));
    }
    return result + " ]";
}

std::string text(const PersistableBundle& data) {
    std::string result = " {";
    for (const char* key : {"Key", "Feature", "Type", "Enable", "FPS"}) {
        String16 string;
        int32_t number = 0;
        bool flag = false;
        if (data.getString(String16(key), &string)) {
            result += std::string(" ") + key + "='" + String8(string).string() + "'";
        } else if (data.getInt(String16(key), &number)) {
            result += std::string(" ") + key + "=" + std::to_string(number);
        } else if (data.getBoolean(String16(key), &flag)) {
            result += std::string(" ") + key + (flag ? "=true" : "=false");
        }
    }
    return result + " }";
}

std::string text(const RecordingService::Buffer& buffer) {
    const sp<android::GraphicBuffer> held = RecordingService::Buffer(buffer).getGraphicBuffer();
    return held == nullptr
               ? " none"
               : " " + std::to_string(held->getWidth()) + "x" + std::to_string(held->getHeight());
}

template <typename... ARGUMENTS>
std::string call(const char* name, const ARGUMENTS&... arguments) {
    return (name + ... + text(arguments));
}

template <typename T>
void reverseAndGrow(std::vector<T>* values) {
    std::reverse(values->begin(), values->end());
    values->push_back(T{77});
}

status_t takeCalls(Journal* journal, const Parcel& data, Parcel* reply) {
    std::vector<String16> calls;
    for (const std::string& entry : journal->take(static_cast<size_t>(data.readInt32()))) {
        calls.push_back(String16(entry.c_str()));
    }
    return reply->writeString16Vector(calls);
}

}  // namespace

void Journal::add(std::string call) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mCalls.push_back(std::move(call));
    mAdded.notify_all();
}

std::vector<std::string> Journal::take(size_t count) {
    std::unique_lock<std::mutex> lock(mMutex);
    mAdded.wait_for(lock, kPatience, [&] { return mCalls.size() >= count; });
    return std::exchange(mCalls, {});
}

status_t RecordingService::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                      uint32_t flags) {
    if (code == CONTROL_TAKE_CALLS) {
        return takeCalls(&mJournal, data, reply);
    }
    if (code == CONTROL_RAISE) {
        const int32_t exception = data.readInt32();
        const String8 message(data.readString16());
        const std::lock_guard<std::mutex> lock(mMutex);
        mNext = exception == Status::EX_SERVICE_SPECIFIC
                    ? Status::fromServiceSpecificError(data.readInt32(), message)
                    : Status::fromExceptionCode(exception, message);
        return OK;
    }
    return BnDisplayEngineService::onTransact(code, data, reply, flags);
}

Status RecordingService::finish(std::string call) {
    mJournal.add(std::move(call));
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mNext, Status::ok());
}

Status RecordingService::getSupported(int32_t feature, int32_t* result) {
    *result = 1001;
    return finish(call("getSupported", feature));
}

Status RecordingService::setScene(int32_t scene, int32_t value, int32_t* result) {
    *result = 1002;
    return finish(call("setScene", scene, value));
}

Status RecordingService::setData(int32_t type, const Bundle& data, int32_t* result) {
    *result = 1003;
    return finish(call("setData", type, data));
}

Status RecordingService::getEffectEx(int32_t feature, int32_t type, std::vector<int32_t>* status,
                                     int32_t length, int32_t* result) {
    const std::string entry = call("getEffectEx", feature, type, *status, length);
    reverseAndGrow(status);
    *result = 1004;
    return finish(entry);
}

Status RecordingService::getEffect(int32_t feature, int32_t type, std::vector<uint8_t>* buffer,
                                   int32_t length, int32_t* result) {
    const std::string entry = call("getEffect", feature, type, *buffer, length);
    reverseAndGrow(buffer);
    *result = 1005;
    return finish(entry);
}

Status RecordingService::getEffectExByData(int32_t feature, const Bundle& data,
                                           std::vector<int32_t>* status, int32_t* result) {
    const std::string entry = call("getEffectExByData", feature, data, *status);
    reverseAndGrow(status);
    *result = 1006;
    return finish(entry);
}

Status RecordingService::setEffect(int32_t feature, int32_t type, const Bundle& data,
                                   int32_t* result) {
    *result = 1007;
    return finish(call("setEffect", feature, type, data));
}

Status RecordingService::registerCallback(const Callback& callback) {
    PersistableBundle data;
    data.putBoolean(String16("Enable"), true);
    const bool told = callback->onEvent(11, -12).transactionError() == OK &&
                      callback->onEventWithData(3, data).transactionError() == OK;
    return finish(std::string("registerCallback ") + (told ? "told" : "lost"));
}

Status RecordingService::registerCallbackEx(const Callback& callback, const Bundle& data,
                                            bool* result) {
    *result = callback != nullptr;
    return finish(call("registerCallbackEx", data));
}

Status RecordingService::unregisterCallback(const Callback&) {
    return finish("unregisterCallback");
}

Status RecordingService::unregisterCallbackEx(const Bundle& data) {
    return finish(call("unregisterCallbackEx", data));
}

Status RecordingService::processGraphicBuffer(int32_t feature, int32_t type, Buffer* input,
                                              Buffer* output, int32_t* result) {
    const std::string entry = call("processGraphicBuffer", feature, type, *input, *output);
    void* pixels = nullptr;
    const sp<android::GraphicBuffer> in = input->getGraphicBuffer();
    if (in != nullptr && in->lock(android::GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels) == OK) {
        auto* bytes = static_cast<uint8_t*>(pixels);
        std::for_each(bytes, bytes + in->getStride(), [](uint8_t& byte) { ++byte; });
        in->unlock();
    }
    const sp<android::GraphicBuffer> made = new android::GraphicBuffer(
        4, 2, android::PIXEL_FORMAT_RGBA_8888, 1, android::GraphicBuffer::USAGE_SW_WRITE_OFTEN);
    if (made->lock(android::GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels) == OK) {
        std::memset(pixels, 9, size_t{made->getStride()} * 2 * 4);
        made->unlock();
    }
    output->setGraphicBuffer(made);
    *result = 1012;
    return finish(entry);
}

status_t RecordingCallback::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                       uint32_t flags) {
    return code == CONTROL_TAKE_CALLS
               ? takeCalls(&mJournal, data, reply)
               : BnDisplayEngineCallback::onTransact(code, data, reply, flags);
}

Status RecordingCallback::onEvent(int32_t event, int32_t value) {
    mJournal.add(call("onEvent", event, value));
    return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
}

Status RecordingCallback::onEventWithData(int32_t event, const PersistableBundle& data) {
    mJournal.add(call("onEventWithData", event, data));
    return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
}

status_t ScriptedBinder::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                    uint32_t flags) {
    std::unique_lock<std::mutex> lock(mMutex);
    switch (code) {
        case CONTROL_SCRIPT:
            mReturned = data.readInt32();
            return data.readByteVector(&mReply);
        case CONTROL_TAKE_REQUEST:
            if (!mArrived.wait_for(lock, kPatience, [&] { return mHasRequest; })) {
                return android::TIMED_OUT;
            }
            mHasRequest = false;
            reply->writeInt32(static_cast<int32_t>(mCode));
            reply->writeInt32(static_cast<int32_t>(mFlags));
            return reply->writeByteVector(mRequest);
        default:
            mHasRequest = true;
            mCode = code;
            mFlags = flags;
            mRequest.assign(data.data(), data.data() + data.dataSize());
            mArrived.notify_all();
            reply->write(mReply.data(), mReply.size());
            return mReturned;
    }
}

}  // namespace protocol
