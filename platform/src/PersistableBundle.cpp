// SPDX-License-Identifier: Apache-2.0
#include <binder/Parcel.h>
#include <binder/PersistableBundle.h>

#include <climits>
#include <type_traits>

namespace android {
namespace os {
namespace {

constexpr int32_t kMagic = 0x4C444E42;  // 'LDNB'

enum ValueType : int32_t {
    kString = 0,
    kInt = 1,
    kLong = 6,
    kDouble = 8,
    kBoolean = 9,
    kStringArray = 14,
    kIntArray = 18,
    kLongArray = 19,
    kBooleanArray = 23,
    kBundle = 25,
    kDoubleArray = 28,
};

// The number that goes in front of each type of value, and the parcel's operations for it.
template <typename T>
struct ValueCodec;

#define VALUE_CODEC(type, number, name)                            \
    template <>                                                    \
    struct ValueCodec<type> {                                      \
        static constexpr ValueType kType = number;                 \
        static status_t write(Parcel* parcel, const type& value) { \
            return parcel->write##name(value);                     \
        }                                                          \
        static status_t read(const Parcel* parcel, type* value) {  \
            return parcel->read##name(value);                      \
        }                                                          \
    }
VALUE_CODEC(String16, kString, String16);
VALUE_CODEC(int32_t, kInt, Int32);
VALUE_CODEC(int64_t, kLong, Int64);
VALUE_CODEC(double, kDouble, Double);
VALUE_CODEC(bool, kBoolean, Bool);
VALUE_CODEC(std::vector<String16>, kStringArray, String16Vector);
VALUE_CODEC(std::vector<int32_t>, kIntArray, Int32Vector);
VALUE_CODEC(std::vector<int64_t>, kLongArray, Int64Vector);
VALUE_CODEC(std::vector<bool>, kBooleanArray, BoolVector);
VALUE_CODEC(std::vector<double>, kDoubleArray, DoubleVector);
#undef VALUE_CODEC

/** Reads a `T` into the variant when `type` is its number; false when it is another's. */
template <typename T, typename Variant>
bool readAs(int32_t type, const Parcel* parcel, Variant* value, status_t* status) {
    if (type != ValueCodec<T>::kType) {
        return false;
    }
    T plain{};
    *status = ValueCodec<T>::read(parcel, &plain);
    *value = std::move(plain);
    return true;
}

template <typename... Ts, typename Variant>
bool readAsOneOf(int32_t type, const Parcel* parcel, Variant* value, status_t* status) {
    return (readAs<Ts>(type, parcel, value, status) || ...);
}

}  // namespace

// The entries ------------------------------------------------------------------------------------

void PersistableBundle::put(const String16& key, Value value) {
    const auto [place, added] = mIndex.emplace(key, mEntries.size());
    if (added) {
        mEntries.emplace_back(key, std::move(value));
    } else {
        mEntries[place->second].second = std::move(value);
    }
}

void PersistableBundle::putPersistableBundle(const String16& key, const PersistableBundle& value) {
    put(key, std::make_shared<const PersistableBundle>(value));
}

bool PersistableBundle::getPersistableBundle(const String16& key, PersistableBundle* out) const {
    Nested nested;
    if (!get(key, &nested)) {
        return false;
    }
    *out = *nested;
    return true;
}

// The flat form ----------------------------------------------------------------------------------

status_t PersistableBundle::writeToParcel(Parcel* parcel) const {
    return writeNested(parcel, 1);
}

status_t PersistableBundle::readFromParcel(const Parcel* parcel) {
    return readNested(parcel, 1);
}

status_t PersistableBundle::writeNested(Parcel* parcel, int depth) const {
    if (empty()) {
        return parcel->writeInt32(0);
    }
    if (depth > kMaxDepth || mEntries.size() > INT32_MAX) {
        return BAD_VALUE;
    }
    const size_t lengthPosition = parcel->dataPosition();
    status_t status = OK;
    for (const int32_t head : {0, kMagic, static_cast<int32_t>(mEntries.size())}) {
        if ((status = parcel->writeInt32(head)) != OK) {
            return status;
        }
    }
    for (const auto& [key, value] : mEntries) {
        if ((status = parcel->writeString16(key)) != OK ||
            (status = writeValue(parcel, value, depth)) != OK) {
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
    return std::visit(
        [parcel, depth](const auto& plain) {
            using T = std::decay_t<decltype(plain)>;
            if constexpr (std::is_same_v<T, Nested>) {
                const status_t status = parcel->writeInt32(kBundle);
                return status == OK ? plain->writeNested(parcel, depth + 1) : status;
            } else {
                const status_t status = parcel->writeInt32(ValueCodec<T>::kType);
                return status == OK ? ValueCodec<T>::write(parcel, plain) : status;
            }
        },
        value);
}

status_t PersistableBundle::readNested(const Parcel* parcel, int depth) {
    int32_t length = 0;
    const status_t status = parcel->readInt32(&length);
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
            if (parcel->readString16(&key) != OK || readValue(parcel, &value, depth) != OK) {
                return BAD_VALUE;
            }
            result.put(key, std::move(value));
        }
        if (parcel->dataPosition() != end) {
            return BAD_VALUE;
        }
    }
    mEntries.swap(result.mEntries);
    mIndex.swap(result.mIndex);
    return OK;
}

status_t PersistableBundle::readValue(const Parcel* parcel, Value* value, int depth) {
    int32_t type = 0;
    status_t status = parcel->readInt32(&type);
    if (status != OK) {
        return status;
    }
    if (type == kBundle) {
        PersistableBundle nested;
        status = nested.readNested(parcel, depth + 1);
        *value = std::make_shared<const PersistableBundle>(std::move(nested));
        return status;
    }
    return readAsOneOf<String16, int32_t, int64_t, double, bool, std::vector<String16>,
                       std::vector<int32_t>, std::vector<int64_t>, std::vector<bool>,
                       std::vector<double>>(type, parcel, value, &status)
               ? status
               : status_t{BAD_VALUE};
}

}  // namespace os
}  // namespace android
