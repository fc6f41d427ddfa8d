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
    __android_log_set_logger([](const __android_log_message* /*message*/) {});
    const auto lowestFree = [] { return transport::UniqueFd(dup(STDERR_FILENO)).get(); };
    const int before = lowestFree();
    f();
    REQUIRE(lowestFree() == before);
    return 0;
}

inline sp<GraphicBuffer> newImage() {
    return new GraphicBuffer(4, 2, PIXEL_FORMAT_RGBA_8888, 1, GraphicBuffer::USAGE_SW_WRITE_OFTEN);
}

/** One of everything that the operations take and give. */
struct Values {
    int32_t a = 0;
    int32_t b = 0;
    int32_t c = 0;
    std::vector<int32_t> values;
    std::vector<uint8_t> bytes;
    PersistableBundle bundle;
    sp<de::IDisplayEngineCallback> callback;
    de::DeGraphicBuffer input;
    de::DeGraphicBuffer output;
    int32_t result = 0;
    bool accepted = false;

    Values() = default;
    /** Any numbers; bundle, buffers and callback are one or none. */
    explicit Values(FuzzedDataProvider& data);
};

/** Members of Values, as they stand one behind the other in a parcel. */
struct Layout {
    status_t (*read)(Values& values, const Parcel& from);
    status_t (*write)(const Values& values, Parcel& to);
};

template <auto... MEMBERS>
status_t readMembers(Values& values, const Parcel& from) {
    return de::items::readItems(from, &(values.*MEMBERS)...);
}
template <auto... MEMBERS>
status_t writeMembers(const Values& values, Parcel& to) {
    return de::items::writeItems(to, values.*MEMBERS...);
}
template <auto... MEMBERS>
constexpr Layout kMembers = {readMembers<MEMBERS...>, writeMembers<MEMBERS...>};
using V = Values;
constexpr Layout kEverything =
    kMembers<&V::a, &V::b, &V::c, &V::values, &V::bytes, &V::bundle, &V::callback, &V::input,
             &V::output, &V::result, &V::accepted>;

/** An operation of the service, or of the callback, which is neither answered nor called here. */
struct Operation {
    Layout request;
    Layout reply;
    Status (*call)(de::IDisplayEngineService& service, Values& v);
};

/** By code; one that is missing does not compile. */
constexpr Operation kServiceOperations[] = {
    {kMembers<&V::a>, kMembers<&V::result>,
     [](auto& it, V& v) { return it.getSupported(v.a, &v.result); }},
    {kMembers<&V::a, &V::b>, kMembers<&V::result>,
     [](auto& it, V& v) { return it.setScene(v.a, v.b, &v.result); }},
    {kMembers<&V::a, &V::bundle>, kMembers<&V::result>,
     [](auto& it, V& v) { return it.setData(v.a, v.bundle, &v.result); }},
    {kMembers<&V::a, &V::b, &V::values, &V::c>, kMembers<&V::result, &V::values>,
     [](auto& it, V& v) { return it.getEffectEx(v.a, v.b, &v.values, v.c, &v.result); }},
    {kMembers<&V::a, &V::b, &V::bytes, &V::c>, kMembers<&V::result, &V::bytes>,
     [](auto& it, V& v) { return it.getEffect(v.a, v.b, &v.bytes, v.c, &v.result); }},
    {kMembers<&V::a, &V::bundle, &V::values>, kMembers<&V::result, &V::values>,
     [](auto& it, V& v) { return it.getEffectExByData(v.a, v.bundle, &v.values, &v.result); }},
    {kMembers<&V::a, &V::b, &V::bundle>, kMembers<&V::result>,
     [](auto& it, V& v) { return it.setEffect(v.a, v.b, v.bundle, &v.result); }},
    {kMembers<&V::callback>, kMembers<>,
     [](auto& it, V& v) { return it.registerCallback(v.callback); }},
    {kMembers<&V::callback, &V::bundle>, kMembers<&V::accepted>,
     [](auto& it, V& v) { return it.registerCallbackEx(v.callback, v.bundle, &v.accepted); }},
    {kMembers<&V::callback>, kMembers<>,
     [](auto& it, V& v) { return it.unregisterCallback(v.callback); }},
    {kMembers<&V::bundle>, kMembers<>,
     [](auto& it, V& v) { return it.unregisterCallbackEx(v.bundle); }},
    {kMembers<&V::a, &V::b, &V::input, &V::output>, kMembers<&V::result, &V::input, &V::output>,
     [](auto& it, V& v) {
         return it.processGraphicBuffer(v.a, v.b, &v.input, &v.output, &v.result);
     }},
};
static_assert(std::size(kServiceOperations) == de::kServiceCodeCount);

constexpr Operation kCallbackOperations[] = {
    {kMembers<&V::a, &V::b>, {}, nullptr},
    {kMembers<&V::a, &V::bundle>, {}, nullptr},
};
static_assert(std::size(kCallbackOperations) ==
              static_cast<size_t>(de::CallbackCode::ON_EVENT_WITH_DATA));

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

/** A stub that keeps code and arguments of the call, and answers what it is told to. */
template <typename STUB>
class Recording : public STUB {
public:
    Parcel call;
    Values answers;
    Status outcome;

protected:
    template <typename... ARGUMENTS>
    Status record(int32_t code, const ARGUMENTS&... arguments) {
        de::items::writeItems(call, code, arguments...);
        return outcome;
    }
};

class RecordingCallback : public Recording<de::BnDisplayEngineCallback> {
public:
    Status onEvent(int32_t event, int32_t value) override { return record(1, event, value); }
    Status onEventWithData(int32_t event, const PersistableBundle& data) override {
        return record(2, event, data);
    }
};

class RecordingService : public Recording<de::BnDisplayEngineService> {
    using Callback = sp<de::IDisplayEngineCallback>;
    using Bundle = PersistableBundle;
    using Buffer = de::DeGraphicBuffer;
    using Int = int32_t;

public:
    Status getSupported(Int a, Int* r) override { return recordFor(r, 1, a); }
    Status setScene(Int a, Int b, Int* r) override { return recordFor(r, 2, a, b); }
    Status setData(Int a, const Bundle& b, Int* r) override { return recordFor(r, 3, a, b); }
    Status getEffectEx(Int a, Int b, std::vector<Int>* v, Int c, Int* r) override {
        return recordFor(r, 4, a, b, std::exchange(*v, answers.values), c);
    }
    Status getEffect(Int a, Int b, std::vector<uint8_t>* y, Int c, Int* r) override {
        return recordFor(r, 5, a, b, std::exchange(*y, answers.bytes), c);
    }
    Status getEffectExByData(Int a, const Bundle& b, std::vector<Int>* v, Int* r) override {
        return recordFor(r, 6, a, b, std::exchange(*v, answers.values));
    }
    Status setEffect(Int a, Int b, const Bundle& c, Int* r) override {
        return recordFor(r, 7, a, b, c);
    }
    Status registerCallback(const Callback& c) override { return record(8, c); }
    Status registerCallbackEx(const Callback& c, const Bundle& b, bool* accepted) override {
        *accepted = answers.accepted;
        return record(9, c, b);
    }
    Status unregisterCallback(const Callback& c) override { return record(10, c); }
    Status unregisterCallbackEx(const Bundle& b) override { return record(11, b); }
    Status processGraphicBuffer(Int a, Int b, Buffer* g, Buffer* h, Int* r) override {
        touch(g->getGraphicBuffer());
        touch(h->getGraphicBuffer());
        const Buffer input = std::exchange(*g, answers.input);
        return recordFor(r, 12, a, b, input, std::exchange(*h, answers.output));
    }

private:
    template <typename... ARGUMENTS>
    Status recordFor(Int* result, Int code, const ARGUMENTS&... arguments) {
        *result = answers.result;
        return record(code, arguments...);
    }
};

inline Values::Values(FuzzedDataProvider& data) {
    enum Has : uint8_t { ACCEPTED = 1, BUNDLE = 2, INPUT = 4, OUTPUT = 8, CALLBACK = 16 };
    static auto* const known = new sp<RecordingCallback>(new RecordingCallback);
    a = data.ConsumeIntegral<int32_t>();
    b = data.ConsumeIntegral<int32_t>();
    c = data.ConsumeIntegral<int32_t>();
    result = data.ConsumeIntegral<int32_t>();
    values.resize(data.ConsumeIntegralInRange<size_t>(0, 7), result);
    bytes.resize(data.ConsumeIntegralInRange<size_t>(0, 7), 0xa5);
    const auto has = data.ConsumeIntegral<uint8_t>();
    accepted = (has & ACCEPTED) != 0;
    if ((has & BUNDLE) != 0) {
        bundle.putInt(String16("k"), a);
    }
    if ((has & INPUT) != 0) {
        input.setGraphicBuffer(newImage());
    }
    if ((has & OUTPUT) != 0) {
        output.setGraphicBuffer(newImage());
    }
    if ((has & CALLBACK) != 0) {
        callback = *known;
    }
}

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
        if (kind == CALLBACK) {
            binder = *callback;
        } else if (kind == OTHER) {
            binder = *other;
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
        size = bytes.size();
    }

    /** Fills a parcel; false when the objects cannot be where they are, which has to be refused. */
    bool fill(Parcel* parcel) const {
        std::vector<ParcelObject> handed;
        for (const Object& object : objects) {
            const int fd = object.fd.ok() ? dup(object.fd.get()) : -1;
            handed.push_back({object.offset, object.binder, fd});
        }
        parcel->writeInt32(7);  // replaced in any case
        if (parcel->ipcSetData(bytes, handed) != OK) {
            REQUIRE(!objects.empty() && parcel->dataSize() == 0 && parcel->objects().empty());
            return false;
        }
        REQUIRE(parcel->setDataSize(size) == OK);
        return true;
    }

    /** Calls `f` with this whole and, with `cuts`, with every shorter one. */
    template <typename F>
    void eachCut(bool cuts, F f) {
        f();
        while (cuts && size > 0) {
            size -= size % 4 > 0 ? size % 4 : 4;
            f();
        }
    }

    std::vector<uint8_t> bytes;
    std::vector<Object> objects;
    size_t size = 0; /**< to which the parcel is cut */
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
