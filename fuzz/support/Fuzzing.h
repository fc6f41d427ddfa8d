// What the fuzzers share: hostile parcels, the layouts of both interfaces, and objects that record.
#pragma once

#include <binder/Parcel.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "aidl/BnDisplayEngineCallback.h"
#include "aidl/BnDisplayEngineService.h"
#include "aidl/ParcelItems.h"
#include "platform/src/UniqueFd.h"

/// Ends the run with a finding unless the condition holds.
#define REQUIRE(condition) ((condition) ? void() : fuzz::fail(#condition, __FILE__, __LINE__))

namespace fuzz {

namespace de = com::tivora::displayengine;
using android::Parcel;
using android::status_t;
using android::binder::Status;
using android::os::PersistableBundle;

[[noreturn]] void fail(const char* condition, const char* file, int line);

/// Descriptors that this process has open.
size_t openDescriptors();

/// The log since the last time; it goes nowhere else.
std::vector<std::string> takeLog();

/// A binder or a descriptor beside the bytes of a parcel.
struct Object {
    size_t offset = 0;
    android::sp<android::IBinder> binder;
    android::transport::UniqueFd fd;
    size_t bytes = 0;       ///< of memory behind the descriptor that cannot be cut away
    bool writable = false;  ///< that memory
};
Object makeObject(FuzzedDataProvider& data);

/// What a peer puts into a parcel: any bytes, with objects wherever it says.
struct Input {
    /// Takes the objects and then all other bytes, which stand behind those of `front`.
    explicit Input(FuzzedDataProvider& data, const Parcel& front = Parcel());

    /// Fills a parcel; false when the objects cannot be where they are, which has to be refused.
    bool fill(Parcel* parcel) const;
    /// Calls `f` with this whole and, with `cuts`, with every shorter one.
    template <typename F>
    void eachCut(bool cuts, F f) {
        for (size = bytes.size(); f(), cuts && size > 0; size -= size % 4 > 0 ? size % 4 : 4) {
        }
    }

    std::vector<uint8_t> bytes;
    std::vector<Object> objects;
    size_t size = 0;  ///< to which the parcel is cut
};

/**
 * The layouts of both interfaces, by code: n argument, v int32 vector, y byte vector, b bundle, c
 * callback, g graphic buffer, r result, z answer. Oneway operations have no reply.
 */
struct Operation {
    const char* request;
    const char* reply;
};
constexpr Operation kServiceOperations[] = {
    {"n", "r"},   {"nn", "r"}, {"nb", "r"}, {"nnvn", "rv"}, {"nnyn", "ry"}, {"nbv", "rv"},
    {"nnb", "r"}, {"c", ""},   {"cb", "z"}, {"c", ""},      {"b", ""},      {"nngg", "rgg"}};
constexpr Operation kCallbackOperations[] = {{"nn", nullptr}, {"nb", nullptr}};

/// One of everything that the operations take and give.
struct Values {
    int32_t numbers[3] = {};
    std::vector<int32_t> values;
    std::vector<uint8_t> bytes;
    PersistableBundle bundle;
    android::sp<de::IDisplayEngineCallback> callback;
    de::DeGraphicBuffer buffers[2];
    int32_t result = 0;
    bool accepted = false;

    /// Calls `f` with the items of a layout until one fails.
    template <typename F>
    status_t each(const char* layout, F f) {
        int32_t* number = numbers;
        de::DeGraphicBuffer* buffer = buffers;
        status_t status = android::OK;
        for (; *layout != '\0' && status == android::OK; ++layout) {
            status = *layout == 'n'   ? f(*number++)
                     : *layout == 'v' ? f(values)
                     : *layout == 'y' ? f(bytes)
                     : *layout == 'b' ? f(bundle)
                     : *layout == 'c' ? f(callback)
                     : *layout == 'g' ? f(*buffer++)
                     : *layout == 'r' ? f(result)
                                      : f(accepted);
        }
        return status;
    }
    /// The same values, with graphic buffers of their own.
    Values fresh() const;
    status_t read(const char* layout, const Parcel& from) {
        return each(layout, [&](auto& item) { return de::items::read(from, &item); });
    }
    status_t write(const char* layout, Parcel* to) {
        return each(layout, [&](const auto& item) { return de::items::write(*to, item); });
    }
};

/// Any values, but for bundle and buffers, which are one or none.
Values makeValues(FuzzedDataProvider& data);
/// Any outcome; transport errors among them with `transport`.
Status makeStatus(FuzzedDataProvider& data, bool transport);

/// Whether both hold the same bytes and the same binders.
bool same(const Parcel& a, const Parcel& b);

/// Keeps code and arguments of the call, and answers what it is told to.
class RecordingService : public de::BnDisplayEngineService {
    using Callback = android::sp<de::IDisplayEngineCallback>;
    using Bundle = PersistableBundle;
    using Buffer = de::DeGraphicBuffer;

public:
    Parcel call;
    Values answers;
    Status outcome;

    Status getSupported(int32_t a, int32_t* r) override { return record(r, 1, a); }
    Status setScene(int32_t a, int32_t b, int32_t* r) override { return record(r, 2, a, b); }
    Status setData(int32_t a, const Bundle& b, int32_t* r) override { return record(r, 3, a, b); }
    Status getEffectEx(int32_t a, int32_t b, std::vector<int32_t>* v, int32_t c,
                       int32_t* r) override {
        Status status = record(r, 4, a, b, *v, c);
        *v = answers.values;
        return status;
    }
    Status getEffect(int32_t a, int32_t b, std::vector<uint8_t>* y, int32_t c,
                     int32_t* r) override {
        Status status = record(r, 5, a, b, *y, c);
        *y = answers.bytes;
        return status;
    }
    Status getEffectExByData(int32_t a, const Bundle& b, std::vector<int32_t>* v,
                             int32_t* r) override {
        Status status = record(r, 6, a, b, *v);
        *v = answers.values;
        return status;
    }
    Status setEffect(int32_t a, int32_t b, const Bundle& c, int32_t* r) override {
        return record(r, 7, a, b, c);
    }
    Status registerCallback(const Callback& c) override { return record(nullptr, 8, c); }
    Status registerCallbackEx(const Callback& c, const Bundle& b, bool* z) override {
        *z = answers.accepted;
        return record(nullptr, 9, c, b);
    }
    Status unregisterCallback(const Callback& c) override { return record(nullptr, 10, c); }
    Status unregisterCallbackEx(const Bundle& b) override { return record(nullptr, 11, b); }
    Status processGraphicBuffer(int32_t a, int32_t b, Buffer* g, Buffer* h, int32_t* r) override {
        Status status = record(r, 12, a, b, *g, *h);
        *g = answers.buffers[0];
        *h = answers.buffers[1];
        return status;
    }

private:
    template <typename... ARGUMENTS>
    Status record(int32_t* result, int32_t code, const ARGUMENTS&... arguments) {
        de::items::writeItems(call, code, arguments...);
        if (result != nullptr) {
            *result = answers.result;
        }
        return outcome;
    }
};

class RecordingCallback : public de::BnDisplayEngineCallback {
public:
    Parcel call;
    Status outcome;

    Status onEvent(int32_t event, int32_t value) override {
        de::items::writeItems(call, int32_t{1}, event, value);
        return outcome;
    }
    Status onEventWithData(int32_t event, const PersistableBundle& data) override {
        de::items::writeItems(call, int32_t{2}, event, data);
        return outcome;
    }
};

}  // namespace fuzz
