// SPDX-License-Identifier: Apache-2.0
#include <binder/Parcel.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <utility>

namespace android {
namespace {

constexpr int32_t kStrictModeGatherPenalty = INT32_MIN;  // no policy but the bit that is always set
constexpr int32_t kNoWorkSource = -1;
constexpr int32_t kInterfaceHeader = 0x53595354;  // 'SYST'

constexpr size_t padded(size_t size) {
    return (size + 3) & ~size_t{3};
}

}  // namespace

Parcel::~Parcel() {
    freeData();
}

void Parcel::setDataPosition(size_t position) const {
    mPosition = std::min(position, mData.size());
}

status_t Parcel::setDataSize(size_t size) {
    if (size > INT32_MAX) {
        return BAD_VALUE;
    }
    dropObjects(size, SIZE_MAX);
    try {
        mData.resize(size);
    } catch (const std::bad_alloc&) {
        return NO_MEMORY;
    }
    setDataPosition(mPosition);
    return OK;
}

status_t Parcel::setData(const uint8_t* bytes, size_t size) {
    freeData();
    const status_t status = setDataSize(size);
    if (status == OK && size > 0) {
        std::memcpy(mData.data(), bytes, size);
    }
    return status;
}

void Parcel::markForBinder(const sp<IBinder>& /*binder*/) {}

status_t Parcel::writeInterfaceToken(const String16& interface) {
    for (const int32_t value : {kStrictModeGatherPenalty, kNoWorkSource, kInterfaceHeader}) {
        const status_t status = writeInt32(value);
        if (status != OK) {
            return status;
        }
    }
    return writeString16(interface);
}

bool Parcel::enforceInterface(const String16& interface) const {
    int32_t policy = 0;
    int32_t workSource = 0;
    int32_t header = 0;
    if (readInt32(&policy) != OK || readInt32(&workSource) != OK || readInt32(&header) != OK ||
        header != kInterfaceHeader) {
        return false;
    }
    String16 name;
    return readString16(&name) == OK && name == interface;
}

bool Parcel::checkInterface(IBinder* binder) const {
    return enforceInterface(binder->getInterfaceDescriptor());
}

// Plain values -----------------------------------------------------------------------------------

void* Parcel::writeInplace(size_t size) {
    if (size > INT32_MAX || padded(size) > INT32_MAX - mPosition) {
        return nullptr;
    }
    const size_t end = mPosition + padded(size);
    dropObjects(mPosition, end);
    try {
        if (end > mData.size()) {
            mData.resize(end);
        }
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    uint8_t* start = mData.data() + mPosition;
    std::fill(start + size, start + padded(size), uint8_t{0});
    mPosition = end;
    return start;
}

status_t Parcel::write(const void* bytes, size_t size) {
    if (size == 0) {
        return OK;
    }
    void* target = writeInplace(size);
    if (target == nullptr) {
        return size > INT32_MAX ? BAD_VALUE : NO_MEMORY;
    }
    std::memcpy(target, bytes, size);
    return OK;
}

const void* Parcel::readInplace(size_t size) const {
    if (size > dataAvail() || padded(size) > dataAvail()) {
        return nullptr;
    }
    const uint8_t* start = mData.data() + mPosition;
    mPosition += padded(size);
    return start;
}

status_t Parcel::read(void* bytes, size_t size) const {
    if (size == 0) {
        return OK;
    }
    const void* source = readInplace(size);
    if (source == nullptr) {
        return NOT_ENOUGH_DATA;
    }
    std::memcpy(bytes, source, size);
    return OK;
}

status_t Parcel::readBool(bool* value) const {
    int32_t number = 0;
    const status_t status = readInt32(&number);
    if (status == OK) {
        *value = number != 0;
    }
    return status;
}

// Strings and vectors ----------------------------------------------------------------------------

status_t Parcel::readCount(size_t elementSize, size_t* count) const {
    int32_t number = 0;
    const status_t status = readInt32(&number);
    if (status != OK) {
        return status;
    }
    if (number < 0) {
        return number == -1 ? UNEXPECTED_NULL : BAD_VALUE;
    }
    *count = static_cast<size_t>(number);
    return *count <= dataAvail() / elementSize ? OK : NOT_ENOUGH_DATA;
}

status_t Parcel::writeString16(const String16& value) {
    if (value.size() >= INT32_MAX / sizeof(char16_t)) {
        return BAD_VALUE;
    }
    const status_t status = writeInt32(static_cast<int32_t>(value.size()));
    return status == OK ? write(value.c_str(), (value.size() + 1) * sizeof(char16_t)) : status;
}

status_t Parcel::readString16(String16* value) const {
    size_t units = 0;
    const status_t status = readCount(sizeof(char16_t), &units);
    if (status != OK) {
        return status;
    }
    const void* text = readInplace((units + 1) * sizeof(char16_t));
    if (text == nullptr) {
        return NOT_ENOUGH_DATA;
    }
    const auto* characters = static_cast<const char16_t*>(text);
    if (characters[units] != 0) {
        return BAD_VALUE;
    }
    *value = String16(characters, units);
    return OK;
}

status_t Parcel::writeBoolVector(const std::vector<bool>& value) {
    // Each one takes an int32, as a single bool does.
    return writeInt32Vector(std::vector<int32_t>(value.begin(), value.end()));
}
status_t Parcel::writeString16Vector(const std::vector<String16>& value) {
    status_t status = value.size() <= INT32_MAX ? writeInt32(static_cast<int32_t>(value.size()))
                                                : status_t{BAD_VALUE};
    for (size_t i = 0; i < value.size() && status == OK; ++i) {
        status = writeString16(value[i]);
    }
    return status;
}

status_t Parcel::readBoolVector(std::vector<bool>* value) const {
    std::vector<int32_t> numbers;
    const status_t status = readInt32Vector(&numbers);
    if (status == OK) {
        value->resize(numbers.size());
        std::transform(numbers.begin(), numbers.end(), value->begin(),
                       [](int32_t number) { return number != 0; });
    }
    return status;
}
status_t Parcel::readString16Vector(std::vector<String16>* value) const {
    constexpr size_t kSmallestString = 2 * sizeof(int32_t);
    size_t count = 0;
    status_t status = readCount(kSmallestString, &count);
    if (status != OK) {
        return status;
    }
    std::vector<String16> result(count);
    for (size_t i = 0; i < count && status == OK; ++i) {
        status = readString16(&result[i]);
    }
    if (status == OK) {
        *value = std::move(result);
    }
    return status;
}

}  // namespace android
