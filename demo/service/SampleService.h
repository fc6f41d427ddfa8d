// SPDX-License-Identifier: Apache-2.0
// The display engine service of the sample: transactions in, answers and events out.
#pragma once

#include <binder/IPCThreadState.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "ClientRegistry.h"
#include "FeatureStore.h"
#include "Options.h"
#include "Report.h"
#include "aidl/BnDisplayEngineService.h"

namespace sample {

/** Copies the pixels of one image to another of the same shape. False if there are none. */
inline bool copyImage(const android::sp<android::GraphicBuffer>& from,
                      const android::sp<android::GraphicBuffer>& to) {
    const bool hasSameShape =
        from != nullptr && to != nullptr && from->getWidth() == to->getWidth() &&
        from->getHeight() == to->getHeight() && from->getStride() == to->getStride() &&
        from->getPixelFormat() == to->getPixelFormat();
    if (!hasSameShape) {
        return false;
    }
    const size_t pixels = size_t{from->getStride()} * from->getHeight();
    const bool isRgba = from->getPixelFormat() == android::PIXEL_FORMAT_RGBA_8888;
    if (!isRgba && from->getPixelFormat() != android::HAL_PIXEL_FORMAT_YCRCB_420_SP) {
        return false;
    }
    void* source = nullptr;
    void* target = nullptr;
    const bool isMapped =
        from->lock(android::GraphicBuffer::USAGE_SW_READ_OFTEN, &source) == android::OK &&
        to->lock(android::GraphicBuffer::USAGE_SW_WRITE_OFTEN, &target) == android::OK;
    if (isMapped) {
        // A client may name the same memory twice.
        std::memmove(target, source, isRgba ? 4 * pixels : pixels + pixels / 2);
    }
    from->unlock();
    to->unlock();
    return isMapped;
}

/**
 * Implements the service interface over the feature store and the client registry, and reports
 * every transaction with its arguments. The operations run on binder threads, several at a time.
 */
class SampleService : public com::tivora::displayengine::BnDisplayEngineService {
public:
    using Status = android::binder::Status;
    using Bundle = android::os::PersistableBundle;
    using Callback = ClientRegistry::Callback;
    using GraphicBuffer = com::tivora::displayengine::DeGraphicBuffer;

    explicit SampleService(const Options& options)
        : mConfiguration(options.configuration.begin(),
                         options.configuration.begin() +
                             static_cast<std::ptrdiff_t>(options.configurationSent)),
          mFeatures(options.supported, options.panelName, options.missing),
          mClients(new ClientRegistry(options.configuration[0] == 1)) {}

    /** Sends an Enable event to every registered client. Any thread. */
    void setEnabled(bool enabled) { mClients->setEnabled(enabled); }

    /** Configuration, clients, counts of transactions, features and last events. Any thread. */
    Json state() const {
        const std::vector<int32_t> sent = configuration();
        Json state = {{"version", DISPLAYENGINE_VERSION},
                      {"pid", getpid()},
                      {"configuration", namedConfiguration(sent)},
                      {"engine", engineConfiguration(sent).values}};
        state.update(mClients->describe());
        state["features"] = mFeatures.describe();
        const DeMutexLock lock(mMutex);
        state["transactions"] = mCalls;
        return state;
    }

    /** Writes the state to `fd`: as text, or with the argument "--json" as one JSON document. */
    android::status_t dump(int fd, const android::Vector<android::String16>& arguments) override {
        const bool isJson = std::find(arguments.begin(), arguments.end(),
                                      android::String16("--json")) != arguments.end();
        const std::string text = isJson ? documentOf(state()) + '\n' : linesOf(state());
        for (size_t done = 0; done < text.size();) {
            const ssize_t size = write(fd, text.data() + done, text.size() - done);
            if (size < 0 && errno != EINTR) {
                return -errno;
            }
            done += size > 0 ? static_cast<size_t>(size) : 0;
        }
        return android::OK;
    }

    Status getSupported(int32_t feature, int32_t* result) override {
        *result = mFeatures.getSupported(feature);
        return reported("getSupported", {{"feature", feature}, {"result", *result}});
    }

    Status setScene(int32_t scene, int32_t value, int32_t* result) override {
        *result = mFeatures.setScene(scene, value);
        return reported("setScene", {{"scene", scene}, {"value", value}, {"result", *result}});
    }

    Status setData(int32_t type, const Bundle& data, int32_t* result) override {
        *result = mFeatures.setData(type, data);
        return reported("setData",
                        {{"type", type}, {"data", entriesOf(data)}, {"result", *result}});
    }

    Status getEffectEx(int32_t feature, int32_t type, std::vector<int32_t>* status, int32_t length,
                       int32_t* result) override {
        *result = mFeatures.getEffectEx(feature, type, length, status);
        return reported(
            "getEffectEx",
            {{"feature", feature}, {"type", type}, {"length", length}, {"result", *result}});
    }

    Status getEffect(int32_t feature, int32_t type, std::vector<uint8_t>* buffer, int32_t length,
                     int32_t* result) override {
        *result = mFeatures.getEffect(feature, type, length, buffer);
        return reported(
            "getEffect",
            {{"feature", feature}, {"type", type}, {"length", length}, {"result", *result}});
    }

    Status getEffectExByData(int32_t feature, const Bundle& data, std::vector<int32_t>* status,
                             int32_t* result) override {
        int32_t type = 0;
        *result = FeatureStore::kRefused;
        if (feature == DE_FEATURE_AISR && data.getInt(android::String16("Type"), &type) &&
            type == DE_EFFECT_TYPE_CONFIG) {
            *status = configuration();
            *result = 0;
        }
        return reported("getEffectExByData", {{"feature", feature},
                                              {"data", entriesOf(data)},
                                              {"values", status->size()},
                                              {"result", *result}});
    }

    Status setEffect(int32_t feature, int32_t type, const Bundle& data, int32_t* result) override {
        *result = mFeatures.setEffect(feature, type, data);
        return reported(
            "setEffect",
            {{"feature", feature}, {"type", type}, {"data", entriesOf(data)}, {"result", *result}});
    }

    Status registerCallback(const Callback& callback) override {
        const Status status = reported("registerCallback", {{"pid", callingPid()}});
        return mClients->add(std::nullopt, callback, callingPid())
                   ? status
                   : refusal(Status::EX_ILLEGAL_STATE, "the callback's process is gone");
    }

    Status registerCallbackEx(const Callback& callback, const Bundle& data, bool* result) override {
        Status status =
            reported("registerCallbackEx", {{"data", entriesOf(data)}, {"pid", callingPid()}});
        std::string key;
        int32_t feature = 0;
        status = readRegistration(data, &key, &feature);
        if (status.isOk()) {
            // Video enhancement is the only feature that has events.
            *result = feature == DE_FEATURE_AISR && mClients->add(key, callback, callingPid());
        }
        return status;
    }

    Status unregisterCallback(const Callback& callback) override {
        const Status status = reported("unregisterCallback", {{"pid", callingPid()}});
        return mClients->remove(std::nullopt, callback, callingPid())
                   ? status
                   : refusal(Status::EX_ILLEGAL_ARGUMENT, "the callback is not registered");
    }

    Status unregisterCallbackEx(const Bundle& data) override {
        Status status =
            reported("unregisterCallbackEx", {{"data", entriesOf(data)}, {"pid", callingPid()}});
        std::string key;
        int32_t feature = 0;
        status = readRegistration(data, &key, &feature);
        if (status.isOk() && !mClients->remove(key, nullptr, callingPid())) {
            return refusal(Status::EX_ILLEGAL_ARGUMENT,
                           "the key is not registered by this process");
        }
        return status;
    }

    Status processGraphicBuffer(int32_t feature, int32_t type, GraphicBuffer* input,
                                GraphicBuffer* output, int32_t* result) override {
        // The sample has no processing of its own: the output is the input.
        const bool isDone = copyImage(input->getGraphicBuffer(), output->getGraphicBuffer());
        *result = isDone ? 0 : FeatureStore::kRefused;
        return reported("processGraphicBuffer",
                        {{"feature", feature}, {"type", type}, {"result", *result}});
    }

private:
    static pid_t callingPid() { return android::IPCThreadState::self()->getCallingPid(); }

    static Status refusal(int32_t code, const char* reason) {
        return Status::fromExceptionCode(code, reason);
    }

    /** What a keyed registration says of itself. */
    static Status readRegistration(const Bundle& data, std::string* key, int32_t* feature) {
        android::String16 text;
        if (!data.getString(android::String16("Key"), &text) ||
            !data.getInt(android::String16("Feature"), feature)) {
            return refusal(Status::EX_ILLEGAL_ARGUMENT,
                           "a registration has a string Key and an int Feature");
        }
        *key = android::String8(text).string();
        return Status::ok();
    }

    std::vector<int32_t> configuration() const {
        std::vector<int32_t> values = mConfiguration;
        if (!values.empty()) {
            values[0] = mClients->enabled() ? 1 : 0;
        }
        return values;
    }

    /** Counts a transaction, and reports it as one line, "NAME argument=value ...". */
    Status reported(const std::string& name, const Json& arguments) {
        {
            const DeMutexLock lock(mMutex);
            ++mCalls[name];
        }
        report(name + ' ' + textOf(arguments));
        return Status::ok();
    }

    const std::vector<int32_t> mConfiguration; /**< Already cut to the length that is sent. */
    FeatureStore mFeatures;
    const android::sp<ClientRegistry> mClients;

    mutable DeMutex mMutex;
    std::map<std::string, uint64_t> mCalls DE_GUARDED_BY(mMutex); /**< By the operation's name. */
};

}  // namespace sample
