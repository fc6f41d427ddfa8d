// SPDX-License-Identifier: Apache-2.0
#include <binder/Parcel.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <iterator>

#include "NoMemory.h"

namespace android {
namespace {

// The strict-mode policy, with no bit but the one that is always set, no work source, and 'SYST'.
constexpr int32_t kTokenHead[] = {INT32_MIN, -1, 0x53595354};

constexpr size_t padded(size_t size) {
    return (size + 3) & ~size_t{3};
}

}  // namespace

void Parcel::freeData() {
    dropObjects(0, SIZE_MAX);
    mData.clear();
    mPosition = 0;
}

void Parcel::setDataPosition(size_t position) const {
    mPosition = std::min(position, mData.size());
}

status_t Parcel::resize(size_t size) {
    return orNoMemory([this, size] { mData.resize(size); });
}

status_t Parcel::setDataSize(size_t size) {
    if (size > INT32_MAX) {
        return BAD_VALUE;
    }
    dropObjects(size, SIZE_MAX);
    const status_t status = resize(size);
    setDataPosition(mPosition);
    return status;
}

status_t Parcel::writeInterfaceToken(const String16& interface) {
    const status_t status = write(kTokenHead, sizeof kTokenHead);
    return status == OK ? writeString16(interface) : status;
}

bool Parcel::checkInterface(IBinder* binder) const {
    int32_t head[std::size(kTokenHead)];
    const char16_t* name = nullptr;
    size_t units = 0;
    if (read(head, sizeof head) != OK || head[2] != kTokenHead[2] ||
        readString16Inplace(&name, &units) != OK) {
        return false;
    }
    const String16& wanted = binder->getInterfaceDescriptor();
    return std::equal(name, name + units, wanted.string(), wanted.string() + wanted.size());
}

// Plain values -----------------------------------------------------------------------------------

/** Room for `size` bytes, padded, at the position; null when there is none. */
void* Parcel::writeInplace(size_t size) {
    if (size > INT32_MAX || padded(size) > INT32_MAX - mPosition) {
        return nullptr;
    }
    const size_t end = mPosition + padded(size);
    dropObjects(mPosition, end);
    if (end > mData.size() && resize(end) != OK) {
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
    if (size > INT32_MAX) {
        return BAD_VALUE;  // also for a count, written before, that does not fit an int32
    }
    void* target = writeInplace(size);
    if (target == nullptr) {
        return NO_MEMORY;
    }
    std::memcpy(target, bytes, size);
    return OK;
}

/** The next `size` bytes, padded, inside the parcel; null when they are not there. */
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

/** Reads a count of elements and checks that so many can follow. */
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
    const status_t status = writeInt32(static_cast<int32_t>(value.size()));
    return status == OK ? write(value.c_str(), (value.size() + 1) * sizeof(char16_t)) : status;
}

status_t Parcel::readString16Inplace(const char16_t** text, size_t* units) const {
    const status_t status = readCount(sizeof(char16_t), units);
    if (status != OK) {
        return status;
    }
    *text = static_cast<const char16_t*>(readInplace((*units + 1) * sizeof(char16_t)));
    if (*text == nullptr) {
        return NOT_ENOUGH_DATA;
    }
    return (*text)[*units] == 0 ? OK : BAD_VALUE;
}

status_t Parcel::readString16(String16* value) const {
    const char16_t* text = nullptr;
    size_t units = 0;
    const status_t status = readString16Inplace(&text, &units);
    if (status != OK) {
        return status;
    }
    return orNoMemory([value, text, units] { *value = String16(text, units); });
}

template <typename T>
status_t Parcel::writeVector(const std::vector<T>& value) {
    const status_t status = writeInt32(static_cast<int32_t>(value.size()));
    return status == OK ? write(value.data(), value.size() * sizeof(T)) : status;
}

template <typename T>
status_t Parcel::readVector(std::vector<T>* value) const {
    size_t count = 0;
    const status_t status = readCount(sizeof(T), &count);
    if (status != OK) {
        return status;
    }
    return orNoMemory([this, value, count] {
        std::vector<T> result(count);
        const status_t read = this->read(result.data(), count * sizeof(T));
        if (read == OK) {
            value->swap(result);
        }
        return read;
    });
}

template status_t Parcel::writeVector(const std::vector<uint8_t>& value);
template status_t Parcel::writeVector(const std::vector<int32_t>& value);
template status_t Parcel::readVector(std::vector<uint8_t>* value) const;
template status_t Parcel::readVector(std::vector<int32_t>* value) const;

}  // namespace android
