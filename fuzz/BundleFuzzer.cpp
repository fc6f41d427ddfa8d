// Any bytes read as a bundle: accepted or refused whole, and the same again once written.
#include <binder/PersistableBundle.h>

#include <cstring>
#include <set>

#include "support/Fuzzing.h"

using namespace android;
using namespace fuzz;

namespace {

/// Follows the format with as little as it takes to say where a bundle ends.
class Format {
public:
    Format(const std::vector<uint8_t>& bytes, size_t size) : mBytes(bytes), mSize(size) {}

    bool isBundle(int depth) {
        uint32_t length = 0, magic = 0, count = 0;
        if (!word(&length)) {
            return false;
        }
        if (length == 0) {
            return true;
        }
        const size_t end = position + 4 + length;
        if (depth > PersistableBundle::kMaxDepth || length > INT32_MAX || !word(&magic) ||
            magic != 0x4C444E42 || !word(&count) || count == 0 || count > INT32_MAX) {
            return false;
        }
        std::set<std::u16string> keys;
        for (; count > 0; --count) {
            std::u16string key;
            uint32_t type = 0;
            if (!isText(&key) || !word(&type) || !isValue(type, depth)) {
                return false;
            }
            canonical = keys.insert(key).second && canonical;
        }
        return position == end;
    }

    size_t position = 0;
    bool canonical = true;  ///< nothing so far that is written in another way

private:
    bool skip(size_t size) {
        const size_t padded = (size + 3) / 4 * 4;
        if (padded > mSize - position) {
            return false;
        }
        canonical = canonical && std::all_of(&mBytes[position] + size, &mBytes[position] + padded,
                                             [](uint8_t byte) { return byte == 0; });
        position += padded;
        return true;
    }
    bool word(uint32_t* value) {
        const size_t start = position;
        return skip(4) && std::memcpy(value, &mBytes[start], 4) != nullptr;
    }
    bool isText(std::u16string* text) {
        uint32_t units = 0;
        const size_t start = position + 4;
        if (!word(&units) || units > INT32_MAX || !skip((size_t{units} + 1) * 2)) {
            return false;
        }
        text->resize(units + 1);
        std::memcpy(text->data(), &mBytes[start], text->size() * 2);
        return text->back() == 0;
    }
    bool isBoolean() {
        uint32_t value = 0;
        const bool there = word(&value);
        canonical = canonical && value <= 1;
        return there;
    }
    template <typename ELEMENT>
    bool isArray(ELEMENT element) {
        uint32_t count = 0;
        if (!word(&count) || count > INT32_MAX) {
            return false;
        }
        for (; count > 0; --count) {
            if (!element()) {
                return false;
            }
        }
        return true;
    }
    bool isValue(uint32_t type, int depth) {
        std::u16string text;
        switch (type) {
            case 0:
                return isText(&text);
            case 1:
                return skip(4);
            case 6:
            case 8:
                return skip(8);
            case 9:
                return isBoolean();
            case 14:
                return isArray([&] { return isText(&text); });
            case 18:
                return isArray([&] { return skip(4); });
            case 19:
            case 28:
                return isArray([&] { return skip(8); });
            case 23:
                return isArray([&] { return isBoolean(); });
            case 25:
                return isBundle(depth + 1);
            default:
                return false;
        }
    }

    const std::vector<uint8_t>& mBytes;
    const size_t mSize;
};

void readAndWrite(const std::vector<uint8_t>& bytes, size_t size) {
    Format format(bytes, size);
    const bool sound = format.isBundle(1);
    Parcel parcel, written, again;
    parcel.setData(bytes.data(), size);
    PersistableBundle bundle, second;
    bundle.putInt(String16("\x01old"), 1);
    const status_t status = bundle.readFromParcel(&parcel);
    REQUIRE(status == (sound ? status_t{OK} : size < 4 ? NOT_ENOUGH_DATA : BAD_VALUE));
    if (!sound) {
        int32_t old = 0;
        REQUIRE(bundle.size() == 1 && bundle.getInt(String16("\x01old"), &old) && old == 1);
        return;
    }
    REQUIRE(parcel.dataPosition() == format.position);
    REQUIRE(bundle.writeToParcel(&written) == OK);
    REQUIRE(written.dataSize() <= format.position);
    REQUIRE(!format.canonical ||
            (written.dataSize() == format.position &&
             std::equal(written.data(), written.data() + format.position, bytes.data())));
    written.setDataPosition(0);
    REQUIRE(second.readFromParcel(&written) == OK);
    REQUIRE(second.size() == bundle.size());
    REQUIRE(second.writeToParcel(&again) == OK);
    REQUIRE(same(written, again));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    FuzzedDataProvider data(bytes, size);
    enum : uint8_t { kEveryCut = 1, kEveryDamage = 2 };
    const auto choice = data.ConsumeIntegral<uint8_t>();
    auto flat = data.ConsumeRemainingBytes<uint8_t>();
    readAndWrite(flat, flat.size());
    const bool isSmall = flat.size() <= 160;
    for (size_t cut = 0; isSmall && (choice & kEveryCut) != 0 && cut < flat.size(); ++cut) {
        readAndWrite(flat, cut);
    }
    for (size_t at = 0; isSmall && (choice & kEveryDamage) != 0 && at + 4 <= flat.size(); at += 4) {
        for (const uint32_t damage : {0u, 25u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
            auto damaged = flat;
            std::memcpy(&damaged[at], &damage, sizeof(damage));
            readAndWrite(damaged, damaged.size());
        }
    }
    return 0;
}
