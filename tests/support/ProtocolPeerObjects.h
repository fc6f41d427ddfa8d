// SPDX-License-Identifier: Apache-2.0
// Objects of the two interfaces that keep what they are called with.
#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <binder/PersistableBundle.h>
#include <utils/String16.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "aidl/BnDisplayEngineCallback.h"
#include "aidl/BnDisplayEngineService.h"

namespace protocol {

/** Codes far above those of the interfaces, by which the test talks to the peer's objects. */
enum ControlCode : uint32_t {
    CONTROL_TAKE_CALLS = 1000,  // int32 count -> as many string16s; waits for that many
    CONTROL_RAISE,              // int32 exception, string16 message, int32 own code: for one call
};

/** The data of an event that switches the engine. */
inline android::os::PersistableBundle enable(bool on) {
    android::os::PersistableBundle data;
    data.putBoolean(android::String16("Enable"), on);
    return data;
}

/** An argument as a call's record shows it: " 7", " [ 1 2 ]", " Key=player Feature=44", " 3x2". */
std::string text(int32_t value);
std::string text(const android::os::PersistableBundle& data);
std::string text(const com::tivora::displayengine::DeGraphicBuffer& buffer);
template <typename T>
std::string text(const std::vector<T>& values) {
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

/** What an object has been called with, in order. */
class Journal {
public:
    void add(std::string call);
    /** Waits until `count` calls are there, ten seconds at most, and takes them all. */
    std::vector<std::string> take(size_t count = 0);
    /** How often an operation of this name was called. */
    size_t count(const std::string& operation) const;
    /** Answers CONTROL_TAKE_CALLS. */
    android::status_t take(const android::Parcel& data, android::Parcel* reply);

private:
    mutable std::mutex mMutex;
    std::condition_variable mAdded;
    std::vector<std::string> mCalls;
};

/** Answers every operation with 1000 + its code, vectors reversed and one longer. */
class RecordingService : public com::tivora::displayengine::BnDisplayEngineService {
public:
    using Status = android::binder::Status;
    using Bundle = android::os::PersistableBundle;
    using Callback = android::sp<com::tivora::displayengine::IDisplayEngineCallback>;
    using Buffer = com::tivora::displayengine::DeGraphicBuffer;

    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

    Status getSupported(int32_t feature, int32_t* result) override {
        return finish(call("getSupported", feature), 1001, result);
    }
    Status setScene(int32_t scene, int32_t value, int32_t* result) override {
        return finish(call("setScene", scene, value), 1002, result);
    }
    Status setData(int32_t type, const Bundle& data, int32_t* result) override {
        return finish(call("setData", type, data), 1003, result);
    }
    Status getEffectEx(int32_t feature, int32_t type, std::vector<int32_t>* status, int32_t length,
                       int32_t* result) override {
        const std::string entry = call("getEffectEx", feature, type, *status, length);
        return finish(entry, 1004, result, status);
    }
    Status getEffect(int32_t feature, int32_t type, std::vector<uint8_t>* buffer, int32_t length,
                     int32_t* result) override {
        const std::string entry = call("getEffect", feature, type, *buffer, length);
        return finish(entry, 1005, result, buffer);
    }
    Status getEffectExByData(int32_t feature, const Bundle& data, std::vector<int32_t>* status,
                             int32_t* result) override {
        const std::string entry = call("getEffectExByData", feature, data, *status);
        return finish(entry, 1006, result, status);
    }
    Status setEffect(int32_t feature, int32_t type, const Bundle& data, int32_t* result) override {
        return finish(call("setEffect", feature, type, data), 1007, result);
    }
    /** Calls the callback with both events before it returns. */
    Status registerCallback(const Callback& callback) override;
    Status registerCallbackEx(const Callback& callback, const Bundle& data, bool* result) override {
        *result = callback != nullptr;
        return finish(call("registerCallbackEx", data));
    }
    Status unregisterCallback(const Callback& /*callback*/) override {
        return finish("unregisterCallback");
    }
    Status unregisterCallbackEx(const Bundle& data) override {
        return finish(call("unregisterCallbackEx", data));
    }
    /** Adds one to each byte of the input's first row and gives the output a new 4 x 2 buffer. */
    Status processGraphicBuffer(int32_t feature, int32_t type, Buffer* input, Buffer* output,
                                int32_t* result) override;

    Journal journal;

private:
    Status finish(std::string call) {
        journal.add(std::move(call));
        const std::lock_guard<std::mutex> lock(mMutex);
        return std::exchange(mNext, Status::ok());
    }
    Status finish(std::string call, int32_t answer, int32_t* result) {
        *result = answer;
        return finish(std::move(call));
    }
    template <typename T>
    Status finish(std::string call, int32_t answer, int32_t* result, std::vector<T>* values) {
        std::reverse(values->begin(), values->end());
        values->push_back(T{77});
        return finish(std::move(call), answer, result);
    }

    std::mutex mMutex;
    Status mNext;  // guarded by mMutex
};

class RecordingCallback : public com::tivora::displayengine::BnDisplayEngineCallback {
public:
    /** Both answer with an exception, which no caller of another process may ever see. */
    android::binder::Status onEvent(int32_t event, int32_t value) override;
    android::binder::Status onEventWithData(int32_t event,
                                            const android::os::PersistableBundle& data) override;

    std::vector<std::string> take(size_t count) { return mJournal.take(count); }

private:
    Journal mJournal;
};

}  // namespace protocol
