// SPDX-License-Identifier: Apache-2.0
#include "SampleService.h"

#include <binder/IPCThreadState.h>
#include <ui/GraphicBuffer.h>
#include <unistd.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <type_traits>

#include "Report.h"
#include "tools/support/EngineConfiguration.h"

using android::sp;
using android::String16;
using android::binder::Status;

namespace sample {
namespace {

pid_t callingPid() {
    return android::IPCThreadState::self()->getCallingPid();
}

void append(std::string&) {}

/** Appends " name=value" for each pair of arguments. */
template <typename VALUE, typename... REST>
void append(std::string& line, const char* name, const VALUE& value, const REST&... rest) {
    line += std::string(" ") + name + "=";
    if constexpr (std::is_same_v<VALUE, SampleService::Bundle>) {
        line += describe(value);
    } else {
        line += std::to_string(value);
    }
    append(line, rest...);
}

bool hasSameShape(const android::GraphicBuffer& a, const android::GraphicBuffer& b) {
    return a.getWidth() == b.getWidth() && a.getHeight() == b.getHeight() &&
           a.getStride() == b.getStride() && a.getPixelFormat() == b.getPixelFormat();
}

/** Copies the pixels of one image to another of the same shape. False if there are none. */
bool copyImage(const sp<android::GraphicBuffer>& from, const sp<android::GraphicBuffer>& to) {
    if (from == nullptr || to == nullptr || !hasSameShape(*from, *to)) {
        return false;
    }
    size_t size = size_t{from->getStride()} * from->getHeight();
    if (from->getPixelFormat() == android::PIXEL_FORMAT_RGBA_8888) {
        size *= 4;
    } else if (from->getPixelFormat() == android::HAL_PIXEL_FORMAT_YCRCB_420_SP) {
        size += size / 2;
    } else {
        return false;
    }
    void* source = nullptr;
    void* target = nullptr;
    const bool isReadable =
        from->lock(android::GraphicBuffer::USAGE_SW_READ_OFTEN, &source) == android::OK;
    const bool isWritable =
        to->lock(android::GraphicBuffer::USAGE_SW_WRITE_OFTEN, &target) == android::OK;
    if (isReadable && isWritable) {
        // A client may name the same memory twice.
        std::memmove(target, source, size);
    }
    from->unlock();
    to->unlock();
    return isReadable && isWritable;
}

/** What a keyed registration says of itself. */
struct Registration {
    std::string key;
    int32_t feature = 0;
};

Status readRegistration(const SampleService::Bundle& data, Registration* registration) {
    String16 key;
    if (!data.getString(String16("Key"), &key) ||
        !data.getInt(String16("Feature"), &registration->feature)) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT,
                                         "a registration has a string Key and an int Feature");
    }
    registration->key = android::String8(key).string();
    return Status::ok();
}

}  // namespace

SampleService::SampleService(const Options& options)
    : mConfiguration(
          options.configuration.begin(),
          options.configuration.begin() + static_cast<std::ptrdiff_t>(options.configurationSent)),
      mFeatures(options.supported, options.panelName, options.missing),
      mClients(new ClientRegistry(options.configuration[0] == 1)) {}

/** Counts a transaction, and reports it as one line, "NAME argument=value ...". */
template <typename... ARGUMENTS>
void SampleService::reportCall(const std::string& name, const ARGUMENTS&... arguments) {
    {
        const DeMutexLock lock(mMutex);
        ++mCalls[name];
    }
    std::string line = name;
    append(line, arguments...);
    report(line);
}

void SampleService::setEnabled(bool enabled) {
    mClients->setEnabled(enabled);
}

Json SampleService::state() const {
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

android::status_t SampleService::dump(int fd, const android::Vector<String16>& arguments) {
    const bool isJson =
        std::find(arguments.begin(), arguments.end(), String16("--json")) != arguments.end();
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

Status SampleService::getSupported(int32_t feature, int32_t* result) {
    *result = mFeatures.getSupported(feature);
    reportCall("getSupported", "feature", feature, "result", *result);
    return Status::ok();
}

Status SampleService::setScene(int32_t scene, int32_t value, int32_t* result) {
    *result = mFeatures.setScene(scene, value);
    reportCall("setScene", "scene", scene, "value", value, "result", *result);
    return Status::ok();
}

Status SampleService::setData(int32_t type, const Bundle& data, int32_t* result) {
    *result = mFeatures.setData(type, data);
    reportCall("setData", "type", type, "data", data, "result", *result);
    return Status::ok();
}

Status SampleService::getEffectEx(int32_t feature, int32_t type, std::vector<int32_t>* status,
                                  int32_t length, int32_t* result) {
    *result = mFeatures.getEffectEx(feature, type, length, status);
    reportCall("getEffectEx", "feature", feature, "type", type, "length", length, "result",
               *result);
    return Status::ok();
}

Status SampleService::getEffect(int32_t feature, int32_t type, std::vector<uint8_t>* buffer,
                                int32_t length, int32_t* result) {
    *result = mFeatures.getEffect(feature, type, length, buffer);
    reportCall("getEffect", "feature", feature, "type", type, "length", length, "result", *result);
    return Status::ok();
}

Status SampleService::getEffectExByData(int32_t feature, const Bundle& data,
                                        std::vector<int32_t>* status, int32_t* result) {
    int32_t type = 0;
    *result = FeatureStore::kRefused;
    if (feature == DE_FEATURE_AISR && data.getInt(String16("Type"), &type) &&
        type == DE_EFFECT_TYPE_CONFIG) {
        *status = configuration();
        *result = 0;
    }
    reportCall("getEffectExByData", "feature", feature, "data", data, "values", status->size(),
               "result", *result);
    return Status::ok();
}

Status SampleService::setEffect(int32_t feature, int32_t type, const Bundle& data,
                                int32_t* result) {
    *result = mFeatures.setEffect(feature, type, data);
    reportCall("setEffect", "feature", feature, "type", type, "data", data, "result", *result);
    return Status::ok();
}

Status SampleService::registerCallback(const Callback& callback) {
    reportCall("registerCallback", "pid", callingPid());
    if (!mClients->add(std::nullopt, callback, callingPid())) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE,
                                         "the callback's process is gone");
    }
    return Status::ok();
}

Status SampleService::registerCallbackEx(const Callback& callback, const Bundle& data,
                                         bool* result) {
    reportCall("registerCallbackEx", "data", data, "pid", callingPid());
    Registration registration;
    const Status status = readRegistration(data, &registration);
    if (status.isOk()) {
        // Video enhancement is the only feature that has events.
        *result = registration.feature == DE_FEATURE_AISR &&
                  mClients->add(registration.key, callback, callingPid());
    }
    return status;
}

Status SampleService::unregisterCallback(const Callback& callback) {
    reportCall("unregisterCallback", "pid", callingPid());
    if (!mClients->remove(std::nullopt, callback, callingPid())) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT,
                                         "the callback is not registered");
    }
    return Status::ok();
}

Status SampleService::unregisterCallbackEx(const Bundle& data) {
    reportCall("unregisterCallbackEx", "data", data, "pid", callingPid());
    Registration registration;
    const Status status = readRegistration(data, &registration);
    if (status.isOk() && !mClients->remove(registration.key, nullptr, callingPid())) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT,
                                         "the key is not registered by this process");
    }
    return status;
}

Status SampleService::processGraphicBuffer(int32_t feature, int32_t type, GraphicBuffer* input,
                                           GraphicBuffer* output, int32_t* result) {
    // The sample has no processing of its own: the output is the input.
    *result = copyImage(input->getGraphicBuffer(), output->getGraphicBuffer())
                  ? 0
                  : FeatureStore::kRefused;
    reportCall("processGraphicBuffer", "feature", feature, "type", type, "result", *result);
    return Status::ok();
}

std::vector<int32_t> SampleService::configuration() const {
    std::vector<int32_t> values = mConfiguration;
    if (!values.empty()) {
        values[0] = mClients->enabled() ? 1 : 0;
    }
    return values;
}

}  // namespace sample
