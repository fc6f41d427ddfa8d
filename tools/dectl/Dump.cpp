// SPDX-License-Identifier: Apache-2.0
#include "Commands.h"

#include <binder/IInterface.h>
#include <binder/PersistableBundle.h>
#include <sys/mman.h>
#include <utils/Errors.h>
#include <utils/String16.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

#include "tools/support/EngineConfiguration.h"

using android::String16;
using com::tivora::displayengine::IDisplayEngineService;

namespace control {
Outcome dumpState(Session& session) {
    const bool isJson = session.output.isJson();
    android::Vector<String16> arguments;
    if (isJson) {
        arguments.push_back(String16("--json"));
    }
    // In memory, and no pipe: it takes all that the service writes before anybody reads.
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fdopen(memfd_create("dump", MFD_CLOEXEC), "r"),
                                                     std::fclose);
    if (file == nullptr) {
        throw std::system_error(errno, std::generic_category(), "memfd_create");
    }
    const android::sp<android::IBinder> binder = android::IInterface::asBinder(session.service);
    const android::status_t status = binder->dump(fileno(file.get()), arguments);
    if (status != android::OK) {
        return {nullptr, "a dump of its state, " + android::statusToString(status)};
    }
    std::string text;
    std::rewind(file.get());
    for (int c = 0; (c = std::fgetc(file.get())) != EOF;) {
        text += static_cast<char>(c);
    }
    const Json values = isJson ? Json::parse(text, nullptr, false) : Json(text);
    if (text.empty() || values.is_discarded()) {
        return {nullptr, std::string("a dump of its state: it has written ") +
                             (text.empty() ? "nothing" : "no JSON")};
    }
    return {values, {}, {}, configurationWarnings(session)};
}

std::vector<std::string> configurationWarnings(Session& session) {
    const auto& service = session.service;
    int32_t result = 0;
    const int32_t feature = IDisplayEngineService::DE_FEATURE_AISR;
    if (!service->getSupported(feature, &result).isOk() || result != 1) {
        return {};
    }
    android::os::PersistableBundle data;
    data.putInt(String16("Type"), IDisplayEngineService::DE_EFFECT_TYPE_CONFIG);
    data.putString(String16("Key"), String16("dectl"));
    std::vector<int32_t> values(kConfigurationSize);
    const auto status = service->getEffectExByData(feature, data, &values, &result);
    if (!status.isOk()) {
        return {"the service gives an engine no configuration: exception " +
                std::to_string(status.exceptionCode())};
    }
    return engineConfiguration(values).findings;
}

}  // namespace control
