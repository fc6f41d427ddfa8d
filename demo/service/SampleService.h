// SPDX-License-Identifier: Apache-2.0
// The display engine service of the sample: transactions in, answers and events out.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "ClientRegistry.h"
#include "FeatureStore.h"
#include "Options.h"
#include "aidl/BnDisplayEngineService.h"

namespace sample {

/**
 * Implements the service interface over the feature store and the client registry, and reports
 * every transaction with its arguments. The operations run on binder threads, several at a time.
 */
class SampleService : public com::tivora::displayengine::BnDisplayEngineService {
public:
    explicit SampleService(const Options& options);

    /** Sends an Enable event to every registered client. Any thread. */
    void setEnabled(bool enabled);

    /** Configuration, clients, counts of transactions, features and last events. Any thread. */
    Json state() const;

    /** Writes the state to `fd`: as text, or with the argument "--json" as one JSON document. */
    android::status_t dump(int fd, const android::Vector<android::String16>& arguments) override;

    using Status = android::binder::Status;
    using Bundle = android::os::PersistableBundle;
    using Callback = ClientRegistry::Callback;
    using GraphicBuffer = com::tivora::displayengine::DeGraphicBuffer;

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
    Status registerCallback(const Callback& callback) override;
    Status registerCallbackEx(const Callback& callback, const Bundle& data, bool* result) override;
    Status unregisterCallback(const Callback& callback) override;
    Status unregisterCallbackEx(const Bundle& data) override;
    Status processGraphicBuffer(int32_t feature, int32_t type, GraphicBuffer* input,
                                GraphicBuffer* output, int32_t* result) override;

private:
    std::vector<int32_t> configuration() const;
    template <typename... ARGUMENTS>
    void reportCall(const std::string& name, const ARGUMENTS&... arguments);

    const std::vector<int32_t> mConfiguration; /**< Already cut to the length that is sent. */
    FeatureStore mFeatures;
    const android::sp<ClientRegistry> mClients;

    mutable DeMutex mMutex;
    std::map<std::string, uint64_t> mCalls DE_GUARDED_BY(mMutex); /**< By the operation's name. */
};

}  // namespace sample
