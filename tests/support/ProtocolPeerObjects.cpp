// SPDX-License-Identifier: Apache-2.0
#include "support/ProtocolPeerObjects.h"

#include <utils/String8.h>

#include <chrono>
#include <cstring>

using android::GraphicBuffer;
using android::OK;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;
using android::String8;
using android::binder::Status;
using android::os::PersistableBundle;

namespace protocol {

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
            result += start + String8(string).string();
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

void Journal::add(std::string call) {
    const std::lock_guard<std::mutex> lock(mMutex);
    mCalls.push_back(std::move(call));
    mAdded.notify_all();
}

std::vector<std::string> Journal::take(size_t count) {
    std::unique_lock<std::mutex> lock(mMutex);
    mAdded.wait_for(lock, std::chrono::seconds(10), [&] { return mCalls.size() >= count; });
    return std::exchange(mCalls, {});
}

size_t Journal::count(const std::string& operation) const {
    const std::lock_guard<std::mutex> lock(mMutex);
    return static_cast<size_t>(std::count_if(
        mCalls.begin(), mCalls.end(),
        [&](const std::string& call) { return call.substr(0, call.find(' ')) == operation; }));
}

status_t Journal::take(const Parcel& data, Parcel* reply) {
    for (const std::string& entry : take(static_cast<size_t>(data.readInt32()))) {
        reply->writeString16(String16(entry.c_str()));
    }
    return OK;
}

status_t RecordingService::onTransact(uint32_t code, const Parcel& data, Parcel* reply,
                                      uint32_t flags) {
    if (code == CONTROL_TAKE_CALLS) {
        return journal.take(data, reply);
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

Status RecordingService::registerCallback(const Callback& callback) {
    const bool told = callback->onEvent(11, -12).transactionError() == OK &&
                      callback->onEventWithData(3, enable(true)).transactionError() == OK;
    return finish(std::string("registerCallback ") + (told ? "told" : "lost"));
}

Status RecordingService::processGraphicBuffer(int32_t feature, int32_t type, Buffer* input,
                                              Buffer* output, int32_t* result) {
    const std::string entry = call("processGraphicBuffer", feature, type, *input, *output);
    constexpr uint64_t kUsage = GraphicBuffer::USAGE_SW_WRITE_OFTEN;
    void* pixels = nullptr;
    const sp<GraphicBuffer> in = input->getGraphicBuffer();
    if (in != nullptr && in->lock(kUsage, &pixels) == OK) {
        auto* bytes = static_cast<uint8_t*>(pixels);
        std::for_each(bytes, bytes + in->getStride(), [](uint8_t& byte) { ++byte; });
        in->unlock();
    }
    const sp<GraphicBuffer> made =
        new GraphicBuffer(4, 2, android::PIXEL_FORMAT_RGBA_8888, 1, kUsage);
    if (made->lock(kUsage, &pixels) == OK) {
        std::memset(pixels, 9, size_t{made->getStride()} * 2 * 4);
        made->unlock();
    }
    output->setGraphicBuffer(made);
    return finish(entry, 1012, result);
}

Status RecordingCallback::onEvent(int32_t event, int32_t value) {
    mJournal.add(call("onEvent", event, value));
    return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
}

Status RecordingCallback::onEventWithData(int32_t event, const PersistableBundle& data) {
    mJournal.add(call("onEventWithData", event) + " {" + text(data) + " }");
    return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE);
}

}  // namespace protocol
