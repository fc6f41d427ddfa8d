// SPDX-License-Identifier: Apache-2.0
#include <binder/Parcel.h>
#include <binder/PersistableBundle.h>

#include <algorithm>
#include <climits>
#include <iterator>
#include <utility>
#include <vector>

#include "NoMemory.h"

namespace android::os {
namespace {

constexpr int32_t kMagic = 0x4C444E42;  // 'LDNB'

// The types' numbers, in the order of the variant's alternatives.
constexpr int32_t kTypes[] = {0, 1, 6, 8, 9, 25};

}  // namespace

// The entries ------------------------------------------------------------------------------------

void PersistableBundle::put(const String16& key, Value value) {
    mEntries.try_emplace(key, Entry{mEntries.size(), {}}).first->second.value = std::move(value);
}

void PersistableBundle::putPersistableBundle(const String16& key, const PersistableBundle& value) {
    put(key, std::make_shared<const PersistableBundle>(value));
}

template <typename T>
bool PersistableBundle::get(const String16& key, T* out) const {
    const auto entry = mEntries.find(key);
    const T* value = entry != mEntries.end() ? std::get_if<T>(&entry->second.value) : nullptr;
    return value != nullptr && orNoMemory([out, value] { *out = T(*value); }) == OK;
}

template bool PersistableBundle::get(const String16& key, String16* out) const;
template bool PersistableBundle::get(const String16& key, int32_t* out) const;
template bool PersistableBundle::get(const String16& key, int64_t* out) const;
template bool PersistableBundle::get(const String16& key, double* out) const;
template bool PersistableBundle::get(const String16& key, bool* out) const;

bool PersistableBundle::getPersistableBundle(const String16& key, PersistableBundle* out) const {
    Nested nested;
    return get(key, &nested) &&
           orNoMemory([out, &nested] { *out = PersistableBundle(*nested); }) == OK;
}

// The flat form ----------------------------------------------------------------------------------

status_t PersistableBundle::writeToParcel(Parcel* parcel) const {
    return orNoMemory([this, parcel] { return writeNested(parcel, 1); });
}

status_t PersistableBundle::readFromParcel(const Parcel* parcel) {
    return orNoMemory([this, parcel] { return readNested(parcel, 1); });
}

status_t PersistableBundle::writeNested(Parcel* parcel, int depth) const {
    if (empty()) {
        return parcel->writeInt32(0);
    }
    if (depth > kMaxDepth || mEntries.size() > INT32_MAX) {
        return BAD_VALUE;
    }
    std::vector<const Entries::value_type*> ordered(mEntries.size());
    for (const auto& entry : mEntries) {
        ordered[entry.second.place] = &entry;
    }
    const size_t lengthPosition = parcel->dataPosition();
    status_t status = OK;
    for (const int32_t head : {0, kMagic, static_cast<int32_t>(mEntries.size())}) {
        if ((status = parcel->writeInt32(head)) != OK) {
            return status;
        }
    }
    for (const auto* entry : ordered) {
        if ((status = parcel->writeString16(entry->first)) != OK ||
            (status = writeValue(parcel, entry->second.value, depth)) != OK) {
            return status;
        }
    }
    // The length is known only now; it counts from behind the magic number.
    const size_t end = parcel->dataPosition();
    parcel->setDataPosition(lengthPosition);
    status = parcel->writeInt32(static_cast<int32_t>(end - lengthPosition - 2 * sizeof(int32_t)));
    parcel->setDataPosition(end);
    return status;
}

status_t PersistableBundle::writeValue(Parcel* parcel, const Value& value, int depth) {
    struct Writer {
        Parcel* parcel;
        int depth;
        status_t operator()(const String16& plain) const { return parcel->writeString16(plain); }
        status_t operator()(int32_t plain) const { return parcel->writeInt32(plain); }
        status_t operator()(int64_t plain) const { return parcel->writeInt64(plain); }
        status_t operator()(double plain) const { return parcel->writeDouble(plain); }
        status_t operator()(bool plain) const { return parcel->writeBool(plain); }
        status_t operator()(const Nested& nested) const {
            return nested->writeNested(parcel, depth + 1);
        }
    };
    static_assert(std::size(kTypes) == std::variant_size_v<Value>, "each alternative has a number");
    const status_t status = parcel->writeInt32(kTypes[value.index()]);
    return status == OK ? std::visit(Writer{parcel, depth}, value) : status;
}

status_t PersistableBundle::readNested(const Parcel* parcel, int depth) {
    int32_t length = 0;
    status_t status = parcel->readInt32(&length);
    if (status != OK) {
        return status;
    }
    PersistableBundle result;
    if (length != 0) {
        int32_t magic = 0;
        int32_t count = 0;
        if (depth > kMaxDepth || length < 0 || parcel->readInt32(&magic) != OK || magic != kMagic) {
            return BAD_VALUE;
        }
        const size_t end = parcel->dataPosition() + static_cast<size_t>(length);
        if (parcel->readInt32(&count) != OK || count <= 0) {
            return BAD_VALUE;
        }
        for (int32_t i = 0; i < count; ++i) {
            String16 key;
            Value value;
            if ((status = parcel->readString16(&key)) != OK ||
                (status = readValue(parcel, &value, depth)) != OK) {
                return status == NO_MEMORY ? NO_MEMORY : BAD_VALUE;
            }
            result.put(key, std::move(value));
        }
        if (parcel->dataPosition() != end) {
            return BAD_VALUE;
        }
    }
    mEntries.swap(result.mEntries);
    return OK;
}

status_t PersistableBundle::readValue(const Parcel* parcel, Value* value, int depth) {
    struct Reader {
        const Parcel* parcel;
        int depth;
        status_t operator()(String16& plain) const { return parcel->readString16(&plain); }
        status_t operator()(int32_t& plain) const { return parcel->readInt32(&plain); }
        status_t operator()(int64_t& plain) const { return parcel->readInt64(&plain); }
        status_t operator()(double& plain) const { return parcel->readDouble(&plain); }
        status_t operator()(bool& plain) const { return parcel->readBool(&plain); }
        status_t operator()(Nested& nested) const {
            const auto bundle = std::make_shared<PersistableBundle>();
            nested = bundle;
            return bundle->readNested(parcel, depth + 1);
        }
    };
    Value empty[] = {String16(), int32_t{0}, int64_t{0}, 0.0, false, Nested()};
    // Past the end it reads as a string, which is then missing as well.
    const int32_t type = parcel->readInt32();
    const auto known = std::find(std::begin(kTypes), std::end(kTypes), type);
    if (known == std::end(kTypes)) {
        return BAD_VALUE;
    }
    *value = std::move(empty[known - kTypes]);
    return std::visit(Reader{parcel, depth}, *value);
}

}  // namespace android::os
