// SPDX-License-Identifier: Apache-2.0
#include "SampleService.h"

#include <binder/IPCThreadState.h>
#include <utils/String16.h>
#include <utils/String8.h>

#include <cstddef>
#include <utility>

#include "ImageCopy.h"
#include "Report.h"

using android::String16;
using android::binder::Status;

namespace sample {
namespace {

pid_t callingPid() {
    return android::IPCThreadState::self()->getCallingPid();
}

/** One line of the report, built as NAME argument=value .... */
class Line {
public:
    explicit Line(const char* name) : mText(name) {}
    ~Line() { report(mText); }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    Line& add(const char* name, int32_t value) { return add(name, std::to_string(value)); }
    Line& add(const char* name, const SampleService::Bundle& data) {
        return add(name, describe(data));
    }
    Line& add(const char* name, const std::string& value) {
        mText += std::string(" ") + name + "=" + value;
        return *this;
    }

private:
    std::string mText;
};

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

void SampleService::setEnabled(bool enabled) {
    const size_t reached = mClients->setEnabled(enabled);
    Line(enabled ? "enable on" : "enable off").add("clients", static_cast<int32_t>(reached));
}

void SampleService::reportStatus() const {
    Line("status").add("enable", std::string(mClients->enabled() ? "on" : "off"));
    for (const std::string& client : mClients->describe()) {
        report("status client " + client);
    }
    for (const std::string& setting : mFeatures.describe()) {
        report("status " + setting);
    }
}

Status SampleService::getSupported(int32_t feature, int32_t* result) {
    *result = mFeatures.getSupported(feature);
    Line("getSupported").add("feature", feature).add("result", *result);
    return Status::ok();
}

Status SampleService::setScene(int32_t scene, int32_t value, int32_t* result) {
    *result = mFeatures.setScene(scene, value);
    Line("setScene").add("scene", scene).add("value", value).add("result", *result);
    return Status::ok();
}

Status SampleService::setData(int32_t type, const Bundle& data, int32_t* result) {
    *result = mFeatures.setData(type, data);
    Line("setData").add("type", type).add("data", data).add("result", *result);
    return Status::ok();
}

Status SampleService::getEffectEx(int32_t feature, int32_t type, std::vector<int32_t>* status,
                                  int32_t length, int32_t* result) {
    *result = mFeatures.getEffectEx(feature, type, length, status);
    Line("getEffectEx")
        .add("feature", feature)
        .add("type", type)
        .add("length", length)
        .add("result", *result);
    return Status::ok();
}

Status SampleService::getEffect(int32_t feature, int32_t type, std::vector<uint8_t>* buffer,
                                int32_t length, int32_t* result) {
    *result = mFeatures.getEffect(feature, type, length, buffer);
    Line("getEffect")
        .add("feature", feature)
        .add("type", type)
        .add("length", length)
        .add("result", *result);
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
    Line("getEffectExByData")
        .add("feature", feature)
        .add("data", data)
        .add("values", static_cast<int32_t>(status->size()))
        .add("result", *result);
    return Status::ok();
}

Status SampleService::setEffect(int32_t feature, int32_t type, const Bundle& data,
                                int32_t* result) {
    *result = mFeatures.setEffect(feature, type, data);
    Line("setEffect")
        .add("feature", feature)
        .add("type", type)
        .add("data", data)
        .add("result", *result);
    return Status::ok();
}

Status SampleService::registerCallback(const Callback& callback) {
    Line("registerCallback").add("pid", callingPid());
    if (!mClients->add(callback, callingPid())) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_STATE,
                                         "the callback's process is gone");
    }
    return Status::ok();
}

Status SampleService::registerCallbackEx(const Callback& callback, const Bundle& data,
                                         bool* result) {
    Line("registerCallbackEx").add("data", data).add("pid", callingPid());
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
    Line("unregisterCallback").add("pid", callingPid());
    if (!mClients->remove(callback, callingPid())) {
        return Status::fromExceptionCode(Status::EX_ILLEGAL_ARGUMENT,
                                         "the callback is not registered");
    }
    return Status::ok();
}

Status SampleService::unregisterCallbackEx(const Bundle& data) {
    Line("unregisterCallbackEx").add("data", data).add("pid", callingPid());
    Registration registration;
    const Status status = readRegistration(data, &registration);
    if (status.isOk() && !mClients->remove(registration.key, callingPid())) {
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
    Line("processGraphicBuffer").add("feature", feature).add("type", type).add("result", *result);
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
