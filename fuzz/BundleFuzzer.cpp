// SPDX-License-Identifier: Apache-2.0
// Any bytes read as a bundle: accepted or refused whole, and the same again once written.
#include <binder/PersistableBundle.h>

#include "support/Fuzzing.h"

using namespace fuzz;

namespace {

/** Reads a bundle, over one that holds something else; gives the number of bytes that it took. */
size_t readAndWrite(const uint8_t* bytes, size_t size) {
    const String16 oldKey("\x01old");
    Parcel parcel;
    parcel.ipcSetData(std::vector<uint8_t>(bytes, bytes + size), {});
    PersistableBundle bundle;
    bundle.putInt(oldKey, 1);
    const status_t status = bundle.readFromParcel(&parcel);
    if (status != OK) {
        int32_t old = 0;
        REQUIRE(status == (size < sizeof(int32_t) ? NOT_ENOUGH_DATA : BAD_VALUE));
        REQUIRE(bundle.size() == 1 && bundle.getInt(oldKey, &old) && old == 1);
        return 0;
    }
    const size_t taken = parcel.dataPosition();
    Parcel written;
    REQUIRE(bundle.writeToParcel(&written) == OK);
    // A key that comes twice takes space once; length and magic are in any case those of a bundle.
    REQUIRE(written.dataSize() <= taken);
    REQUIRE((taken == sizeof(int32_t)) == bundle.empty());
    parcel.setDataPosition(0);
    REQUIRE(static_cast<size_t>(parcel.readInt32()) + (bundle.empty() ? 4 : 8) == taken);
    written.setDataPosition(sizeof(int32_t));
    REQUIRE(bundle.empty() || parcel.readInt32() == written.readInt32());

    PersistableBundle second;
    Parcel again;
    written.setDataPosition(0);
    REQUIRE(second.readFromParcel(&written) == OK && second.size() == bundle.size());
    REQUIRE(second.writeToParcel(&again) == OK && protocol::hex(again) == protocol::hex(written));
    return taken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kLongestCut = 160;
    const size_t taken = readAndWrite(data, size);
    for (size_t cut = 0; cut < taken && size <= kLongestCut; ++cut) {
        REQUIRE(readAndWrite(data, cut) == 0);
    }
    return 0;
}
