// The objects that the peer process of the protocol tests registers.
#pragma once

#include <binder/Binder.h>
#include <binder/Parcel.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "aidl/BnDisplayEngineCallback.h"
#include "aidl/BnDisplayEngineService.h"

namespace protocol {

/// Codes far above those of the interfaces, by which the test talks to the peer's objects.
enum ControlCode : uint32_t {
    CONTROL_TAKE_CALLS = 1000,  // int32 count -> status, string16 vector; waits for that many
    CONTROL_RAISE,         // int32 exception, string16 message, int32 own code: for the next call
    CONTROL_OUTCOME,       // -> int32 returned, int32 bytes replied, of the last transaction
    CONTROL_SCRIPT,        // int32 returned, byte vector reply: for every later transaction
    CONTROL_TAKE_REQUEST,  // -> int32 code, int32 flags, byte vector; waits for one
};

/// What an object has been called with, in order.
class Journal {
public:
    void add(std::string call);
    /// Waits until `count` calls are there and takes them all; empty after ten seconds.
    std::vector<std::string> take(size_t count);

private:
    std::mutex mMutex;
    std::condition_variable mAdded;
    std::vector<std::string> mCalls;
};

/// Answers every operation with 1000 + its code, vectors reversed and one longer.
class RecordingService : public com::tivora::displayengine::BnDisplayEngineService {
public:
    using Status = android::binder::Status;
    using Bundle = android::os::PersistableBundle;
    using Callback = android::sp<com::tivora::displayengine::IDisplayEngineCallback>;
    using Buffer = com::tivora::displayengine::DeGraphicBuffer;

    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

    Status getSupported(int32_t feature, int32_t* result) override;
    Status setScene(int32_t scene, int32_t value, int32_t* result) override;
    Status setData(int32_t type, const Bundle& data, int32_t* result) override;
    Status getEffectEx(int32_t feature, int32_t type, std::vector<int32_t>* status, int32_t length,
                       int32_t* result) override;
    Status getEffect(int32_t feature, int32_t type, std::vector<uint8_t>* buffer, int32_t length,
                     int32_t* result) override;
    Status getEffectExByData(int32_t feature, const Bundle& data, std::vector<int32_t>* status,
                             int32_t* result) override;
    Status setEffect(int32_t feature, int32_t type, const Bundle& data, int32_t* result) override;
    /// Calls the callback with both events before it returns.
    Status registerCallback(const Callback& callback) override;
    Status registerCallbackEx(const Callback& callback, const Bundle& data, bool* result) override;
    Status unregisterCallback(const Callback& callback) override;
    Status unregisterCallbackEx(const Bundle& data) override;
    /// Adds one to each byte of the input's first row and gives the output a new 4 x 2 buffer.
    Status processGraphicBuffer(int32_t feature, int32_t type, Buffer* input, Buffer* output,
                                int32_t* result) override;

    std::vector<std::string> take(size_t count) { return mJournal.take(count); }

private:
    Status finish(std::string call);

    Journal mJournal;
    std::mutex mMutex;
    Status mNext;  // guarded by mMutex
};

class RecordingCallback : public com::tivora::displayengine::BnDisplayEngineCallback {
public:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;
    /// Both answer with an exception, which no caller may ever see.
    android::binder::Status onEvent(int32_t event, int32_t value) override;
    android::binder::Status onEventWithData(int32_t event,
                                            const android::os::PersistableBundle& data) override;

    std::vector<std::string> take(size_t count) { return mJournal.take(count); }

private:
    Journal mJournal;
};

/// Keeps the bytes of the last request and answers with bytes and a result given beforehand.
class ScriptedBinder : public android::BBinder {
protected:
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

private:
    std::mutex mMutex;
    std::condition_variable mArrived;
    bool mHasRequest = false;
    uint32_t mCode = 0;
    uint32_t mFlags = 0;
    std::vector<uint8_t> mRequest;
    android::status_t mReturned = android::OK;
    std::vector<uint8_t> mReply;
};

}  // namespace protocol
