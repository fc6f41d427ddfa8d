// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/Parcelable.h>
#include <utils/Errors.h>
#include <utils/Flattenable.h>
#include <utils/String16.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

namespace android {

/**
 * A binder or a file descriptor in a parcel. The flat data holds only a placeholder at `offset`;
 * the object itself travels beside it.
 */
struct ParcelObject {
    size_t offset = 0;
    sp<IBinder> binder;
    int fd = -1;
};

/**
 * The request or the reply of a transaction: typed values one after the other, each padded to four
 * bytes, little-endian. Used by one thread at a time.
 *
 * Reads check the bounds before they allocate. A failed read leaves the caller's value unchanged:
 * NOT_ENOUGH_DATA past the end, BAD_VALUE for an impossible length, UNEXPECTED_NULL for an absent
 * value, BAD_TYPE where no binder or descriptor was sent. Reads and writes return NO_MEMORY when an
 * allocation fails.
 */
class Parcel {
public:
    Parcel() = default;
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;
    /** Closes the descriptors it holds. */
    ~Parcel() { freeData(); }

    const uint8_t* data() const { return mData.data(); }
    size_t dataSize() const { return mData.size(); }
    /** Bytes from the position to the end. */
    size_t dataAvail() const { return mData.size() - mPosition; }
    size_t dataPosition() const { return mPosition; }
    /** Moves the position; one past the end counts as the end. */
    void setDataPosition(size_t position) const;
    /** Extends the data by zero bytes, or cuts them together with the objects in that part. */
    status_t setDataSize(size_t size);
    void freeData();

    /** Names the binder that the parcel is meant for. Nothing depends on it here. */
    void markForBinder(const sp<IBinder>& /*binder*/) {}

    /** Writes the header by which the receiver recognises the interface that is being called. */
    status_t writeInterfaceToken(const String16& interface);
    /** Reads that header. False when it does not name the interface of `binder`. */
    bool checkInterface(IBinder* binder) const;

    status_t write(const void* bytes, size_t size);
    status_t writeInt32(int32_t value) { return write(&value, sizeof value); }
    status_t writeInt64(int64_t value) { return write(&value, sizeof value); }
    status_t writeDouble(double value) { return write(&value, sizeof value); }
    status_t writeBool(bool value) { return writeInt32(value ? 1 : 0); }
    status_t writeString16(const String16& value);
    status_t writeByteVector(const std::vector<uint8_t>& value) { return writeVector(value); }
    status_t writeInt32Vector(const std::vector<int32_t>& value) { return writeVector(value); }
    /** Null is allowed and arrives as null. */
    status_t writeStrongBinder(const sp<IBinder>& value);
    /** Duplicates `fd`; the caller keeps its own. */
    status_t writeDupFileDescriptor(int fd);
    status_t writeParcelable(const Parcelable& value);
    template <typename T>
    status_t write(const Flattenable<T>& value);

    status_t read(void* bytes, size_t size) const;
    status_t readInt32(int32_t* value) const { return read(value, sizeof *value); }
    status_t readInt64(int64_t* value) const { return read(value, sizeof *value); }
    status_t readDouble(double* value) const { return read(value, sizeof *value); }
    status_t readBool(bool* value) const;
    status_t readString16(String16* value) const;
    status_t readByteVector(std::vector<uint8_t>* value) const { return readVector(value); }
    status_t readInt32Vector(std::vector<int32_t>* value) const { return readVector(value); }
    /** UNEXPECTED_NULL for a null binder. */
    status_t readStrongBinder(sp<IBinder>* value) const;
    status_t readNullableStrongBinder(sp<IBinder>* value) const;
    /** As above, converted to the interface `T`; UNKNOWN_ERROR when the conversion gives null. */
    template <typename T>
    status_t readStrongBinder(sp<T>* value) const;
    status_t readParcelable(Parcelable* value) const;
    template <typename T>
    status_t read(Flattenable<T>& value) const;

    // The same reads with a neutral result (0, false, empty, null, -1) for every failure.
    int32_t readInt32() const { return valueOf<int32_t>(&Parcel::readInt32); }
    bool readBool() const { return readInt32() != 0; }
    String16 readString16() const { return valueOf<String16>(&Parcel::readString16); }
    sp<IBinder> readStrongBinder() const {
        return valueOf<sp<IBinder>>(&Parcel::readNullableStrongBinder);
    }
    /** A descriptor that stays the parcel's own. */
    int readFileDescriptor() const;

    /** The binders and descriptors, in the order of their offsets. For the transport. */
    const std::vector<ParcelObject>& objects() const { return mObjects; }
    /**
     * Replaces the content by what a peer sent and takes ownership of the descriptors, whatever the
     * result. BAD_VALUE when an object lies outside the data or overlaps another; the parcel is
     * then empty. For the transport and for tests.
     */
    status_t ipcSetData(std::vector<uint8_t> data, std::vector<ParcelObject> objects);

private:
    /** Descriptors that one message can carry, and so the most of one flattenable. */
    static constexpr size_t kMaxDescriptors = 253;

    /** What `get` reads, or the neutral value that it has left unchanged. */
    template <typename T>
    T valueOf(status_t (Parcel::*get)(T*) const) const {
        T value{};
        (this->*get)(&value);
        return value;
    }
    status_t resize(size_t size);
    void* writeInplace(size_t size);
    const void* readInplace(size_t size) const;
    template <typename T>
    status_t writeVector(const std::vector<T>& value);
    template <typename T>
    status_t readVector(std::vector<T>* value) const;
    status_t readCount(size_t elementSize, size_t* count) const;
    status_t readString16Inplace(const char16_t** text, size_t* units) const;

    status_t writeObject(uint32_t type, ParcelObject object);
    status_t readObject(uint32_t* type, const ParcelObject** object) const;
    void dropObjects(size_t begin, size_t end);
    status_t writeFlatHead(size_t size, size_t fdCount, void** bytes);
    status_t readFlat(const void** bytes, size_t* size, int* fds, size_t* fdCount) const;

    std::vector<uint8_t> mData;
    std::vector<ParcelObject> mObjects;
    mutable size_t mPosition = 0;
};

template <typename T>
status_t Parcel::write(const Flattenable<T>& value) {
    int fds[kMaxDescriptors];
    const size_t fdCount = value.getFdCount();
    size_t size = value.getFlattenedSize();
    void* bytes = nullptr;
    status_t status = writeFlatHead(size, fdCount, &bytes);
    if (status == OK) {
        int* nextFd = fds;
        size_t room = fdCount;
        status = value.flatten(bytes, size, nextFd, room);
    }
    for (size_t i = 0; i < fdCount && status == OK; ++i) {
        status = writeDupFileDescriptor(fds[i]);
    }
    return status;
}

template <typename T>
status_t Parcel::read(Flattenable<T>& value) const {
    int fds[kMaxDescriptors];
    const int* nextFd = fds;
    size_t fdCount = 0;
    const void* bytes = nullptr;
    size_t size = 0;
    const status_t status = readFlat(&bytes, &size, fds, &fdCount);
    return status == OK ? value.unflatten(bytes, size, nextFd, fdCount) : status;
}

template <typename T>
status_t Parcel::readStrongBinder(sp<T>* value) const {
    sp<IBinder> binder;
    const status_t status = readStrongBinder(&binder);
    if (status != OK) {
        return status;
    }
    try {
        *value = T::asInterface(binder);
    } catch (const std::bad_alloc&) {
        return NO_MEMORY;
    }
    return *value != nullptr ? OK : UNKNOWN_ERROR;
}

}  // namespace android
