// SPDX-License-Identifier: Apache-2.0
// What the fuzzers share: hostile parcels, the layouts of both interfaces, and objects that record.
#pragma once

#include <android/log.h>
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "aidl/BnDisplayEngineCallback.h"
#include "aidl/BnDisplayEngineService.h"
#include "aidl/ParcelItems.h"
#include "aidl/TransactionCodes.h"
#include "platform/src/UniqueFd.h"

/** Ends the run with a finding unless the condition holds. */
#define REQUIRE(condition)                                                               \
    do {                                                                                 \
        if (!(condition)) {                                                              \
            std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                \
        }                                                                                \
    } while (false)

namespace fuzz {

namespace de = com::tivora::displayengine;
using namespace android;
using android::binder::Status;
using android::os::PersistableBundle;

/** Runs one input, and looks for descriptors that it has left open: they take the lowest numbers.
 */
template <typename F>
int requireNoLeak(F f) {
    const auto lowestFree = [] { return transport::UniqueFd(dup(STDERR_FILENO)).get(); };
    const int before = lowestFree();
    f();
    REQUIRE(lowestFree() == before);
    return 0;
}

/** The log since the last time. From the first time on it goes nowhere else. */
inline std::vector<std::string> takeLog() {
    static std::mutex lock;
    static auto* const log = new std::vector<std::string>;
    __android_log_set_logger([](const __android_log_message* message) {
        const std::lock_guard<std::mutex> locked(lock);
        log->emplace_back(message->message);
    });
    const std::lock_guard<std::mutex> locked(lock);
    return std::exchange(*log, {});
}

/** Keeps code and arguments of the call, and answers what it is told to. */
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

/** A binder or a descriptor beside the bytes of a parcel. */
struct Object {
    size_t offset = 0;
    sp<IBinder> binder;
    transport::UniqueFd fd;

    explicit Object(FuzzedDataProvider& data) {
        static auto* const callback = new sp<IBinder>(new RecordingCallback);
        static auto* const other = new sp<IBinder>(new BBinder);
        enum { NONE, CALLBACK, OTHER, DEVICE, MEMORY, UNSEALED, READ_ONLY };
        const int kind = data.ConsumeIntegralInRange<int>(NONE, READ_ONLY);
        const off_t size = data.ConsumeIntegral<uint16_t>();
        if (kind == CALLBACK || kind == OTHER) {
            binder = kind == CALLBACK ? *callback : *other;
        } else if (kind == DEVICE) {
            fd = transport::UniqueFd(open("/dev/null", O_RDWR | O_CLOEXEC));
        } else if (kind >= MEMORY) {
            fd = transport::UniqueFd(memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING));
            const int seals = F_SEAL_SHRINK | (kind == READ_ONLY ? F_SEAL_WRITE : 0);
            REQUIRE(ftruncate(fd.get(), size) == 0);
            REQUIRE(kind == UNSEALED || fcntl(fd.get(), F_ADD_SEALS, seals) == 0);
        }
    }
};

/** What a peer puts into a parcel: any bytes, with objects wherever it says. */
struct Input {
    /** Takes the objects and then all other bytes, which stand behind those of `front`. */
    explicit Input(FuzzedDataProvider& data, const Parcel& front = Parcel())
        : bytes(front.data(), front.data() + front.dataSize()) {
        for (int count = data.ConsumeIntegralInRange(0, 3); count > 0; --count) {
            const size_t offset = data.ConsumeIntegral<uint16_t>();
            objects.emplace_back(data).offset = bytes.size() + offset;
        }
        const auto rest = data.ConsumeRemainingBytes<uint8_t>();
        bytes.insert(bytes.end(), rest.begin(), rest.end());
    }

    /** Fills a parcel; false when the objects cannot be where they are, which has to be refused. */
    bool fill(Parcel* parcel) const {
        constexpr size_t kPlaceholder = 24;
        std::vector<ParcelObject> handed;
        bool sound = true;
        for (const Object& object : objects) {
            const size_t end = object.offset + kPlaceholder;
            sound = sound && end <= bytes.size() &&
                    std::none_of(handed.begin(), handed.end(), [&](const ParcelObject& other) {
                        return other.offset < end && other.offset + kPlaceholder > object.offset;
                    });
            const int fd = object.fd.ok() ? dup(object.fd.get()) : -1;
            handed.push_back({object.offset, object.binder, fd});
        }
        parcel->writeInt32(7);  // replaced in any case
        REQUIRE(parcel->ipcSetData(bytes, handed) == (sound ? status_t{OK} : BAD_VALUE));
        REQUIRE(sound || (parcel->dataSize() == 0 && parcel->objects().empty()));
        REQUIRE(!sound || parcel->setDataSize(size) == OK);
        return sound;
    }

    /** Calls `f` with this whole and, with `cuts`, with every shorter one. */
    template <typename F>
    void eachCut(bool cuts, F f) {
        for (size = bytes.size(); f(), cuts && size > 0; size -= size % 4 > 0 ? size % 4 : 4) {
        }
    }

    std::vector<uint8_t> bytes;
    std::vector<Object> objects;
    size_t size = 0; /**< to which the parcel is cut */
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
constexpr char kEverything[] = "nnnvybcggrz";

// A new transaction changes these two, and does not compile without its layout.
constexpr auto kServiceCodes = static_cast<size_t>(de::ServiceCode::PROCESS_GRAPHIC_BUFFER);
constexpr auto kCallbackCodes = static_cast<size_t>(de::CallbackCode::ON_EVENT_WITH_DATA);
static_assert(std::size(kServiceOperations) == kServiceCodes);
static_assert(std::size(kCallbackOperations) == kCallbackCodes);

inline sp<GraphicBuffer> newImage() {
    return new GraphicBuffer(4, 2, PIXEL_FORMAT_RGBA_8888, 1, GraphicBuffer::USAGE_SW_WRITE_OFTEN);
}

/** One of everything that the operations take and give. */
struct Values {
    int32_t numbers[3] = {};
    std::vector<int32_t> values;
    std::vector<uint8_t> bytes;
    PersistableBundle bundle;
    sp<de::IDisplayEngineCallback> callback;
    de::DeGraphicBuffer buffers[2];
    int32_t result = 0;
    bool accepted = false;

    Values() = default;
    /** Any numbers; bundle, buffers and callback are one or none. */
    explicit Values(FuzzedDataProvider& data) {
        static auto* const known = new sp<RecordingCallback>(new RecordingCallback);
        for (int32_t& number : numbers) {
            number = data.ConsumeIntegral<int32_t>();
        }
        result = data.ConsumeIntegral<int32_t>();
        values.resize(data.ConsumeIntegralInRange<size_t>(0, 7), result);
        bytes.resize(data.ConsumeIntegralInRange<size_t>(0, 7), 0xa5);
        const auto has = data.ConsumeIntegral<uint8_t>();
        accepted = (has & 1) != 0;
        if ((has & 2) != 0) {
            bundle.putInt(String16("k"), numbers[0]);
        }
        for (uint32_t i = 0; i < 2; ++i) {
            if ((has & (4u << i)) != 0) {
                buffers[i].setGraphicBuffer(newImage());
            }
        }
        if ((has & 16) != 0) {
            callback = *known;
        }
    }

    /** Calls `f` with the items of a layout until one fails. */
    template <typename F>
    status_t each(const char* layout, F f) {
        int32_t* number = numbers;
        de::DeGraphicBuffer* buffer = buffers;
        status_t status = OK;
        for (; *layout != '\0' && status == OK; ++layout) {
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
    status_t read(const char* layout, const Parcel& from) {
        return each(layout, [&](auto& item) { return de::items::read(from, &item); });
    }
    status_t write(const char* layout, Parcel* to) {
        return each(layout, [&](const auto& item) { return de::items::write(*to, item); });
    }
};

/** Writes to the ends of an image, which have to be there whatever a peer has sent. */
inline void touch(const sp<GraphicBuffer>& image) {
    void* pixels = nullptr;
    if (image != nullptr && image->lock(GraphicBuffer::USAGE_SW_WRITE_OFTEN, &pixels) == OK) {
        const size_t count = size_t{image->getStride()} * image->getHeight();
        const bool whole = image->getPixelFormat() == PIXEL_FORMAT_RGBA_8888;
        auto* const bytes = static_cast<uint8_t*>(pixels);
        bytes[0] = 1;
        bytes[(whole ? count * 4 : count * 3 / 2) - 1] = 1;
    }
}

/** Keeps code and arguments of the call, and answers what it is told to. */
class RecordingService : public de::BnDisplayEngineService {
    using Callback = sp<de::IDisplayEngineCallback>;
    using Bundle = PersistableBundle;
    using Buffer = de::DeGraphicBuffer;
    using Int = int32_t;

public:
    Parcel call;
    Values answers;
    Status outcome;

    Status getSupported(Int a, Int* r) override { return record(r, 1, a); }
    Status setScene(Int a, Int b, Int* r) override { return record(r, 2, a, b); }
    Status setData(Int a, const Bundle& b, Int* r) override { return record(r, 3, a, b); }
    Status getEffectEx(Int a, Int b, std::vector<Int>* v, Int c, Int* r) override {
        return record(r, 4, a, b, std::exchange(*v, answers.values), c);
    }
    Status getEffect(Int a, Int b, std::vector<uint8_t>* y, Int c, Int* r) override {
        return record(r, 5, a, b, std::exchange(*y, answers.bytes), c);
    }
    Status getEffectExByData(Int a, const Bundle& b, std::vector<Int>* v, Int* r) override {
        return record(r, 6, a, b, std::exchange(*v, answers.values));
    }
    Status setEffect(Int a, Int b, const Bundle& c, Int* r) override {
        return record(r, 7, a, b, c);
    }
    Status registerCallback(const Callback& c) override { return record(nullptr, 8, c); }
    Status registerCallbackEx(const Callback& c, const Bundle& b, bool* z) override {
        *z = answers.accepted;
        return record(nullptr, 9, c, b);
    }
    Status unregisterCallback(const Callback& c) override { return record(nullptr, 10, c); }
    Status unregisterCallbackEx(const Bundle& b) override { return record(nullptr, 11, b); }
    Status processGraphicBuffer(Int a, Int b, Buffer* g, Buffer* h, Int* r) override {
        touch(g->getGraphicBuffer());
        touch(h->getGraphicBuffer());
        const Buffer input = std::exchange(*g, answers.buffers[0]);
        return record(r, 12, a, b, input, std::exchange(*h, answers.buffers[1]));
    }

private:
    template <typename... ARGUMENTS>
    Status record(Int* result, Int code, const ARGUMENTS&... arguments) {
        de::items::writeItems(call, code, arguments...);
        if (result != nullptr) {
            *result = answers.result;
        }
        return outcome;
    }
};

inline Status makeStatus(FuzzedDataProvider& data) {
    const int kind = data.ConsumeIntegralInRange(0, 3);
    const auto number = data.ConsumeIntegral<int32_t>();
    return kind == 0   ? Status::ok()
           : kind == 1 ? Status::fromExceptionCode(number, "why")
           : kind == 2 ? Status::fromServiceSpecificError(number, "why")
                       : Status::fromStatusT(number);
}

/** Whether both hold the same bytes and the same binders. */
inline bool same(const Parcel& a, const Parcel& b) {
    const auto sameObject = [](const ParcelObject& one, const ParcelObject& other) {
        return one.binder == other.binder && (one.fd < 0) == (other.fd < 0);
    };
    return std::equal(a.data(), a.data() + a.dataSize(), b.data(), b.data() + b.dataSize()) &&
           std::equal(a.objects().begin(), a.objects().end(), b.objects().begin(),
                      b.objects().end(), sameObject);
}

}  // namespace fuzz
