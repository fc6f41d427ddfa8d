// Descriptions of graphic buffers with real descriptors, read as a parcelable or directly.
#include <cstring>
#include <iterator>

#include "support/Fuzzing.h"

using namespace android;
using namespace fuzz;

namespace {

constexpr uint32_t kMagic = 0x47423031;
constexpr uint32_t kDescriptor = 0x66642a85;
constexpr size_t kPlaceholder = 24;
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

/// What a description stands for; without bytes, no image.
struct Image {
    uint32_t words[WORDS] = {kMagic};
    size_t bytes = 0;

    status_t read(const void* flat, size_t size, const std::vector<const Object*>& fds) {
        uint32_t given[WORDS];
        if (size < sizeof(given)) {
            return NO_MEMORY;
        }
        std::memcpy(given, flat, sizeof(given));
        if (given[MAGIC] != kMagic || given[FDS] > 1 || given[INTS] != 0) {
            return BAD_VALUE;
        }
        if (given[FDS] == 0 || given[FDS] > fds.size()) {
            return given[FDS] == 0 ? status_t{OK} : NO_MEMORY;
        }
        const uint32_t format = given[FORMAT];
        const bool subsampled = format == 0x11 || format == 0x23;
        const uint64_t bits = format == 1 || format == 2 || format == 5 ? 32
                              : format == 4                             ? 16
                              : subsampled                              ? 12
                                                                        : 0;
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

    void requireIn(const sp<GraphicBuffer>& buffer) const {
        uint32_t flat[WORDS];
        void* to = flat;
        size_t size = sizeof(flat), count = 1;
        int fd = -1;
        int* fds = &fd;
        REQUIRE(buffer->flatten(to, size, fds, count) == OK);
        REQUIRE(size == 0 && std::memcmp(flat, words, sizeof(words)) == 0);
        REQUIRE((buffer->initCheck() == OK) == (bytes > 0) && (fd >= 0) == (bytes > 0));
        REQUIRE(buffer->getFdCount() == (bytes > 0 ? 1 : 0));
        void* pixels = nullptr;
        REQUIRE(buffer->lock(0x33, &pixels) == (bytes > 0 ? status_t{OK} : NO_INIT));
        if (bytes > 0) {
            static_cast<uint8_t*>(pixels)[0] = 1;
            static_cast<uint8_t*>(pixels)[bytes - 1] = 2;
            REQUIRE(buffer->unlock() == OK);
        }
    }
};

sp<GraphicBuffer> makeBuffer() {
    return new GraphicBuffer(4, 2, PIXEL_FORMAT_RGBA_8888, 1, 3, "fuzz");
}

void unflattenDirectly(FuzzedDataProvider& data) {
    std::vector<Object> objects;
    std::vector<const Object*> pointers;
    std::vector<int> fds;
    for (int count = data.ConsumeIntegralInRange(0, 2); count > 0; --count) {
        objects.push_back(makeObject(data));
        fds.push_back(objects.back().fd.get());
    }
    for (const Object& object : objects) {
        pointers.push_back(&object);
    }
    const auto flat = data.ConsumeRemainingBytes<uint8_t>();
    Image image;
    const status_t expected = image.read(flat.data(), flat.size(), pointers);
    const sp<GraphicBuffer> buffer = makeBuffer();
    const void* from = flat.data();
    const int* numbers = fds.data();
    size_t size = flat.size(), count = fds.size();
    REQUIRE(buffer->unflatten(from, size, numbers, count) == expected);
    image.requireIn(buffer);
}

/// Reads the image behind flag and integers; false for a parcel that does not have so much, from
/// which nothing is unflattened.
bool readImage(const Parcel& parcel, const Input& input, Image* image) {
    int32_t size = 0, count = 0;
    if (parcel.readInt32(&size) != OK || size < 0 ||
        static_cast<size_t>(size) > parcel.dataAvail() || parcel.readInt32(&count) != OK ||
        count < 0 || count > 1024) {
        return false;
    }
    const void* const flat = parcel.readInplace(static_cast<size_t>(size));
    std::vector<const Object*> fds;
    while (flat != nullptr && count-- > 0) {
        const auto object = std::find_if(
            input.objects.begin(), input.objects.end(),
            [&](const Object& one) { return one.offset == parcel.dataPosition() && one.fd.ok(); });
        uint32_t placeholder[kPlaceholder / sizeof(uint32_t)] = {};
        if (parcel.read(placeholder, sizeof(placeholder)) != OK || placeholder[0] != kDescriptor ||
            object == input.objects.end()) {
            return false;
        }
        fds.push_back(&*object);
    }
    if (flat != nullptr) {
        image->read(flat, static_cast<size_t>(size), fds);
    }
    return flat != nullptr;
}

void readParcelable(const Input& input, bool held) {
    Parcel parcel, written;
    if (!input.fill(&parcel)) {
        return;
    }
    const bool present = parcel.readBool();
    std::vector<int32_t> expected = {1, 0, 0, 0, 0};
    for (size_t i = 1; i < expected.size() && present; ++i) {
        expected[i] = parcel.readInt32();
    }
    Image image;
    const bool unflattened = present && readImage(parcel, input, &image);

    const sp<GraphicBuffer> own = held ? makeBuffer() : nullptr;
    de::DeGraphicBuffer object(own);
    parcel.setDataPosition(0);
    REQUIRE(object.readFromParcel(&parcel) == OK);
    const sp<GraphicBuffer> read = object.getGraphicBuffer();
    REQUIRE(object.writeToParcel(&written) == OK);
    written.setDataPosition(0);
    REQUIRE(written.readBool() == (present || held));
    REQUIRE((read != nullptr) == (present || held));
    REQUIRE(!held || read == own);
    for (size_t i = 1; i < expected.size() && read != nullptr; ++i) {
        REQUIRE(written.readInt32() == expected[i]);
    }
    if (held && !unflattened) {
        REQUIRE(own->getWidth() == 4 && own->initCheck() == OK);
    } else if (present) {
        image.requireIn(read);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    const size_t open = openDescriptors();
    {
        FuzzedDataProvider data(bytes, size);
        enum : uint8_t { kDirectly = 1, kIntoHeld = 2, kEveryCut = 4 };
        const auto choice = data.ConsumeIntegral<uint8_t>();
        if ((choice & kDirectly) != 0) {
            unflattenDirectly(data);
        } else {
            Input input(data);
            input.eachCut((choice & kEveryCut) != 0,
                          [&] { readParcelable(input, (choice & kIntoHeld) != 0); });
        }
    }
    REQUIRE(openDescriptors() == open);
    return 0;
}
