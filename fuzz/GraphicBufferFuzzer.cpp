// SPDX-License-Identifier: Apache-2.0
// Graphic buffers out of any parcel, with real descriptors: alone, and inside their parcelable.
#include <cstring>

#include "support/Fuzzing.h"

using namespace fuzz;

namespace {

constexpr uint32_t kMagic = 0x47423031;
constexpr uint32_t kDescriptor = 0x66642a85;
enum Word {
    MAGIC,
    WIDTH,
    HEIGHT,
    STRIDE,
    FORMAT,
    LAYERS,
    USAGE,
    FDS = 10,
    INTS,
    USAGE_HIGH,
    WORDS
};

/** What a flat form stands for; without bytes, no image. */
struct Image {
    uint32_t words[WORDS] = {kMagic};
    size_t bytes = 0;

    status_t unflatten(const void* flat, size_t size, const std::vector<const Object*>& fds) {
        uint32_t given[WORDS];
        if (size < sizeof(given)) {
            return NO_MEMORY;
        }
        std::memcpy(given, flat, sizeof(given));
        if (given[MAGIC] != kMagic || given[FDS] > 1 || given[INTS] != 0) {
            return BAD_VALUE;
        }
        if (given[FDS] == 0 || fds.empty()) {
            return given[FDS] == 0 ? status_t{OK} : NO_MEMORY;
        }
        const uint32_t format = given[FORMAT];
        const bool subsampled = format == 0x11 || format == 0x23;
        const bool whole = format == 1 || format == 2 || format == 5;
        const uint64_t bits = whole ? 32 : format == 4 ? 16 : subsampled ? 12 : 0;
        const uint64_t rows = uint64_t{given[HEIGHT]} + (subsampled ? given[HEIGHT] % 2 : 0);
        const uint64_t needed = rows * given[STRIDE] * bits / 8;
        if (needed == 0 || given[LAYERS] != 1 || given[WIDTH] == 0 || given[HEIGHT] > 65536 ||
            given[WIDTH] > given[STRIDE] || given[STRIDE] > 65536 || fds[0]->bytes < needed) {
            return BAD_VALUE;
        }
        if (!fds[0]->writable) {
            return NO_MEMORY;
        }
        std::memcpy(words, given, sizeof(words));
        std::fill(words + USAGE + 1, words + FDS, 0u);
        bytes = needed;
        return OK;
    }

    /** Follows the parcel as far as it goes; `reached` tells whether that was far enough. */
    status_t read(const Parcel& parcel, const Input& input, bool* reached) {
        int32_t size = 0, count = 0;
        const bool sized = parcel.readInt32(&size) == OK;
        if (sized && size < 0) {
            return size == -1 ? UNEXPECTED_NULL : BAD_VALUE;
        }
        if (!sized || static_cast<size_t>(size) > parcel.dataAvail() ||
            parcel.readInt32(&count) != OK) {
            return NOT_ENOUGH_DATA;
        }
        if (count < 0 || count > 1024) {
            return BAD_VALUE;
        }
        const void* const flat = parcel.readInplace(static_cast<size_t>(size));
        if (flat == nullptr || static_cast<size_t>(count) > parcel.dataAvail() / 24) {
            return NOT_ENOUGH_DATA;
        }
        std::vector<const Object*> fds;
        for (; count > 0; --count) {
            const size_t at = parcel.dataPosition();
            const void* const placeholder = parcel.readInplace(24);
            for (const Object& object : input.objects) {
                if (object.offset == at && object.fd.ok() &&
                    std::memcmp(placeholder, &kDescriptor, sizeof(kDescriptor)) == 0) {
                    fds.push_back(&object);
                }
            }
            if (parcel.dataPosition() != at + 24 || fds.empty() || fds.back()->offset != at) {
                return BAD_TYPE;
            }
        }
        *reached = true;
        return unflatten(flat, static_cast<size_t>(size), fds);
    }

    void requireIn(const sp<GraphicBuffer>& buffer) const {
        uint32_t flat[WORDS];
        void* to = flat;
        size_t size = sizeof(flat), count = 1;
        int fd = -1;
        int* fds = &fd;
        REQUIRE(buffer->flatten(to, size, fds, count) == OK && size == 0);
        REQUIRE(std::memcmp(flat, words, sizeof(words)) == 0 && (fd >= 0) == (bytes > 0));
        REQUIRE(buffer->getFdCount() == (bytes > 0 ? 1 : 0));
        REQUIRE(buffer->initCheck() == (bytes > 0 ? status_t{OK} : NO_INIT));
        void* pixels = nullptr;
        REQUIRE(buffer->lock(0x33, &pixels) == buffer->initCheck());
        if (bytes > 0) {
            static_cast<uint8_t*>(pixels)[0] = static_cast<uint8_t*>(pixels)[bytes - 1] = 1;
        }
    }
};

void read(const Input& input, bool alone, bool held) {
    Parcel parcel, written;
    if (!input.fill(&parcel)) {
        return;
    }
    const sp<GraphicBuffer> own = new GraphicBuffer(4, 2, PIXEL_FORMAT_RGBA_8888, 1, 3);
    Image image;
    bool reached = false;
    if (alone) {
        const status_t expected = image.read(parcel, input, &reached);
        parcel.setDataPosition(0);
        REQUIRE(parcel.read(*own) == expected);
        REQUIRE(reached || own->getWidth() == 4);
        return reached ? image.requireIn(own) : void();
    }
    const bool present = parcel.readBool();
    int32_t params[4] = {};
    for (int32_t& param : params) {
        param = present ? parcel.readInt32() : 0;
    }
    if (present) {
        image.read(parcel, input, &reached);
    }
    de::DeGraphicBuffer object(held ? own : nullptr);
    parcel.setDataPosition(0);
    REQUIRE(object.readFromParcel(&parcel) == OK);
    REQUIRE(object.writeToParcel(&written) == OK);
    written.setDataPosition(0);
    const sp<GraphicBuffer> now = object.getGraphicBuffer();
    REQUIRE(written.readBool() == (present || held) && (now != nullptr) == (present || held));
    for (const int32_t param : params) {
        REQUIRE(now == nullptr || written.readInt32() == param);
    }
    REQUIRE(!held || now == own);
    if (held && !reached) {
        REQUIRE(own->getWidth() == 4 && own->initCheck() == OK);
    } else if (present) {
        image.requireIn(now);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    return requireNoLeak([&] {
        enum : uint8_t { kAlone = 1, kIntoHeld = 2, kEveryCut = 4 };
        FuzzedDataProvider data(bytes, size);
        const auto choice = data.ConsumeIntegral<uint8_t>();
        Input input(data);
        input.eachCut((choice & kEveryCut) != 0,
                      [&] { read(input, (choice & kAlone) != 0, (choice & kIntoHeld) != 0); });
    });
}
