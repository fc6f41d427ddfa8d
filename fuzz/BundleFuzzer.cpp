// SPDX-License-Identifier: Apache-2.0
// Any bytes read as a bundle: accepted or refused whole, and the same again once written.
#include <binder/PersistableBundle.h>

#include <cstring>

#include "support/Fuzzing.h"

using namespace fuzz;

namespace {

/** Follows the format with as little as it takes to say where a bundle ends. */
class Format {
public:
    Format(const uint8_t* bytes, size_t size) : mBytes(bytes), mSize(size) {}

    bool isBundle(int depth) {
        uint32_t length = 0;
        uint32_t magic = 0;
        uint32_t count = 0;
        if (!number(&length)) {
            return false;
        }
        if (length == 0) {
            return true;
        }
        const size_t end = position + 4 + length;
        if (depth > PersistableBundle::kMaxDepth || !number(&magic) || magic != 0x4C444E42 ||
            !number(&count) || count == 0) {
            return false;
        }
        for (; count > 0; --count) {
            uint32_t type = 0;
            if (!isText() || !number(&type) || !isValue(type, depth)) {
                return false;
            }
        }
        return position == end;
    }

    size_t position = 0;

private:
    bool skip(size_t size) {
        const size_t padded = (size + 3) / 4 * 4;
        const bool there = padded <= mSize - position;
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
    bool isValue(uint32_t type, int depth) {
        switch (type) {
            case 0:
                return isText();
            case 1:
            case 9:
                return skip(4);
            case 6:
            case 8:
                return skip(8);
            default:
                return type == 25 && isBundle(depth + 1);
        }
    }

    const uint8_t* const mBytes;
    const size_t mSize;
};

void readAndWrite(const uint8_t* bytes, size_t size) {
    Format format(bytes, size);
    const bool sound = format.isBundle(1);
    Parcel parcel;
    Parcel written;
    Parcel again;
    parcel.ipcSetData(std::vector<uint8_t>(bytes, bytes + size), {});
    PersistableBundle bundle;
    PersistableBundle second;
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
    written.setDataPosition(0);
    REQUIRE(second.readFromParcel(&written) == OK && second.size() == bundle.size());
    REQUIRE(second.writeToParcel(&again) == OK && same(written, again));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kLongestCut = 160;
    readAndWrite(data, size);
    for (size_t cut = 0; cut < size && size <= kLongestCut; ++cut) {
        readAndWrite(data, cut);
    }
    return 0;
}
