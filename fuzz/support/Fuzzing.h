// SPDX-License-Identifier: Apache-2.0
// What the fuzzers share: hostile parcels, and the layouts of both interfaces.
#pragma once

#include <android/log.h>
#include <binder/Binder.h>
#include <binder/Parcel.h>
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <vector>

#include "aidl/ParcelItems.h"
#include "aidl/TransactionCodes.h"
#include "platform/src/UniqueFd.h"
#include "support/Recording.h"
#include "support/ServiceOperations.h"

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

/** Runs one input, and looks for descriptors that it has left open. */
template <typename F>
int requireNoLeak(F f) {
    __android_log_set_logger([](const __android_log_message* /*message*/) {});
    const auto countOpen = [] {
        constexpr int kMost = 64;  // More than an input opens.
        int count = 0;
        for (int fd = 0; fd < kMost; ++fd) {
            count += fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
        }
        return count;
    };
    const int before = countOpen();
    f();
    REQUIRE(countOpen() == before);
    return 0;
}

/** One of everything that the operations take and give. */
struct Values : protocol::Results {
    int32_t a = 0;
    int32_t b = 0;
    int32_t c = 0;
    PersistableBundle bundle;
    sp<de::IDisplayEngineCallback> callback;
};

/** Reads members of Values as they stand one behind the other in a parcel. */
template <auto... MEMBERS>
status_t read(Values& values, const Parcel& from) {
    return de::items::readItems(from, &(values.*MEMBERS)...);
}
using ReadMembers = status_t (*)(Values& values, const Parcel& from);
using V = Values;

/** What an operation's parcels hold; a oneway operation has no reply. */
struct Operation {
    ReadMembers request;
    ReadMembers reply;
};

/** By code; one that is missing does not compile. */
constexpr Operation kServiceOperations[] = {
    {read<&V::a>, read<&V::result>},
    {read<&V::a, &V::b>, read<&V::result>},
    {read<&V::a, &V::bundle>, read<&V::result>},
    {read<&V::a, &V::b, &V::values, &V::c>, read<&V::result, &V::values>},
    {read<&V::a, &V::b, &V::bytes, &V::c>, read<&V::result, &V::bytes>},
    {read<&V::a, &V::bundle, &V::values>, read<&V::result, &V::values>},
    {read<&V::a, &V::b, &V::bundle>, read<&V::result>},
    {read<&V::callback>, read<>},
    {read<&V::callback, &V::bundle>, read<&V::accepted>},
    {read<&V::callback>, read<>},
    {read<&V::bundle>, read<>},
    {read<&V::a, &V::b, &V::input, &V::output>, read<&V::result, &V::input, &V::output>},
};
static_assert(std::size(kServiceOperations) == de::kServiceCodeCount);

constexpr Operation kCallbackOperations[] = {
    {read<&V::a, &V::b>, nullptr},
    {read<&V::a, &V::bundle>, nullptr},
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

/** A binder or a descriptor beside the bytes of a parcel. */
struct Object {
    size_t offset = 0;
    sp<IBinder> binder;
    transport::UniqueFd fd;

    explicit Object(FuzzedDataProvider& data) {
        enum { NONE, CALLBACK, OTHER, DEVICE, MEMORY, UNSEALED, READ_ONLY };
        const int kind = data.ConsumeIntegralInRange<int>(NONE, READ_ONLY);
        const off_t size = data.ConsumeIntegral<uint16_t>();
        if (kind == CALLBACK) {
            binder = new protocol::RecordingCallback;
        } else if (kind == OTHER) {
            binder = new BBinder;
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
        constexpr size_t kPlaceholder = 24;
        size_t end = 0;
        for (const ParcelObject& object : parcel->objects()) {
            REQUIRE(object.offset >= end && object.offset + kPlaceholder <= bytes.size());
            end = object.offset + kPlaceholder;
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

}  // namespace fuzz
