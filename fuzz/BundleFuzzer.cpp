// SPDX-License-Identifier: Apache-2.0
// Any bytes read as a bundle: accepted or refused whole, and the same again once written.
#include <binder/PersistableBundle.h>

#include <cstring>
#include <map>
#include <set>

#include "support/Fuzzing.h"

using namespace fuzz;

namespace {

/** Follows the format with as little as it takes to say where a bundle ends. */
class Format {
public:
    Format(const uint8_t* bytes, size_t size) : mBytes(bytes), mSize(size) {}

    bool isBundle(int depth) {
        uint32_t length = 0, magic = 0, count = 0;
        if (!number(&length)) {
            return false;
        }
        if (length == 0) {
            return true;
        }
        const size_t end = position + 4 + length;
        std::set<std::string> keys;
        if (depth > PersistableBundle::kMaxDepth || !number(&magic) || magic != 0x4C444E42 ||
            !number(&count) || count == 0) {
            return false;
        }
        for (; count > 0; --count) {
            const size_t start = position;
            uint32_t type = 0;
            if (!isText()) {
                return false;
            }
            canonical =
                keys.insert(std::string(mBytes + start, mBytes + position)).second && canonical;
            if (!number(&type) || !isValue(type, depth)) {
                return false;
            }
        }
        return position == end;
    }

    size_t position = 0;
    bool canonical = true; /**< nothing so far that is written in another way */

private:
    bool skip(size_t size) {
        const size_t padded = (size + 3) / 4 * 4;
        const bool there = padded <= mSize - position;
        for (size_t at = size; there && at < padded; ++at) {
            canonical = canonical && mBytes[position + at] == 0;
        }
        position += there ? padded : 0;
        return there;
    }
    /** A number that is not negative. */
    bool number(uint32_t* value) {
        if (skip(4)) {
            std::memcpy(value, mBytes + position - 4, 4);
            return *value <= INT32_MAX;
        }
        return false;
    }
    bool isText() {
        uint32_t units = 0;
        const size_t start = position + 4;
        return number(&units) && skip((size_t{units} + 1) * 2) &&
               (mBytes[start + 2 * units] | mBytes[start + 2 * units + 1]) == 0;
    }
    bool isElement(uint32_t type) {
        switch (type) {
            case 0:
                return isText();
            case 9: {
                static const uint8_t one[4] = {1}, zero[4] = {};
                const uint8_t* const value = mBytes + position;
                const bool there = skip(4);
                canonical = canonical && there &&
                            (std::equal(one, one + 4, value) || std::equal(zero, zero + 4, value));
                return there;
            }
            default:
                return skip(type == 1 ? 4 : 8);
        }
    }
    bool isValue(uint32_t type, int depth) {
        // Which types there are, and of which elements the vectors consist.
        static const std::map<uint32_t, uint32_t> kVectors = {
            {14, 0}, {18, 1}, {19, 6}, {23, 9}, {28, 8}};
        const auto vector = kVectors.find(type);
        if (vector == kVectors.end()) {
            const bool isPlain = type <= 1 || type == 6 || type == 8 || type == 9;
            return type == 25 ? isBundle(depth + 1) : isPlain && isElement(type);
        }
        uint32_t count = 0;
        bool sound = number(&count);
        for (; sound && count > 0; --count) {
            sound = isElement(vector->second);
        }
        return sound;
    }

    const uint8_t* const mBytes;
    const size_t mSize;
};

void readAndWrite(const std::vector<uint8_t>& bytes, size_t size) {
    Format format(bytes.data(), size);
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
    REQUIRE(!format.canonical ||
            std::equal(written.data(), written.data() + written.dataSize(), bytes.begin(),
                       bytes.begin() + static_cast<ptrdiff_t>(format.position)));
    written.setDataPosition(0);
    REQUIRE(second.readFromParcel(&written) == OK && second.size() == bundle.size());
    REQUIRE(second.writeToParcel(&again) == OK && same(written, again));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    enum : uint8_t { kEveryCut = 1, kEveryDamage = 2 };
    const uint8_t choice = size > 0 && size <= 160 ? data[size - 1] : 0;
    std::vector<uint8_t> bytes(data, data + std::max<size_t>(size, 1) - 1);
    readAndWrite(bytes, bytes.size());
    for (size_t cut = 0; (choice & kEveryCut) != 0 && cut < bytes.size(); ++cut) {
        readAndWrite(bytes, cut);
    }
    for (size_t at = 0; (choice & kEveryDamage) != 0 && at + 4 <= bytes.size(); at += 4) {
        for (const uint32_t damage : {0u, 25u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
            auto damaged = bytes;
            std::memcpy(&damaged[at], &damage, sizeof(damage));
            readAndWrite(damaged, damaged.size());
        }
    }
    return 0;
}
