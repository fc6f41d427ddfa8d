// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/Parcelable.h>
#include <utils/Errors.h>
#include <utils/Flattenable.h>
#include <utils/String16.h>

#include <cstddef>
#include <cstdint>
#include <utility>
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
 * Reads trust nothing. They check the bounds before they allocate, and a failed one leaves the
 * caller's value alone: NOT_ENOUGH_DATA past the end, BAD_VALUE for an impossible length,
 * UNEXPECTED_NULL for an absent value, BAD_TYPE where no binder or descriptor was sent.
 */
class Parcel {
public:
    Parcel() = default;
    Parcel(const Parcel&) = delete;
    Parcel& operator=(const Parcel&) = delete;
    /** Closes the descriptors it holds. */
    ~Parcel();

    const uint8_t* data() const { return mData.data(); }
    size_t dataSize() const { return mData.size(); }
    /** Bytes from the position to the end. */
    size_t dataAvail() const { return mData.size() - mPosition; }
    size_t dataPosition() const { return mPosition; }
    /** Moves the position; one past the end counts as the end. */
    void setDataPosition(size_t position) const;
    /** Grows by zero bytes or cuts, together with the objects cut off. */
    status_t setDataSize(size_t size);
    /** Replaces the content by plain bytes. */
    status_t setData(const uint8_t* bytes, size_t size);
    void freeData();

    /**
     * Says which binder the parcel will go to. One transport serves them all here, so nothing
     * depends on it.
     */
    void markForBinder(const sp<IBinder>& binder);

    /** Writes the header by which the receiver recognises the interface that is being called. */
    status_t writeInterfaceToken(const String16& interface);
    /** Reads that header; false, with nothing more read, when it is not the one of `interface`. */
    bool enforceInterface(const String16& interface) const;
    /** The same for the interface of `binder`. */
    bool checkInterface(IBinder* binder) const;

    status_t write(const void* bytes, size_t size);
    /**
     * Room for `size` bytes at the position, padded; null when there is none. Valid until the next
     * write.
     */
    void* writeInplace(size_t size);
    status_t writeInt32(int32_t value) { return write(&value, sizeof value); }
    status_t writeInt64(int64_t value) { return write(&value, sizeof value); }
    status_t writeDouble(double value) { return write(&value, sizeof value); }
    status_t writeBool(bool value) { return writeInt32(value ? 1 : 0); }
    status_t writeString16(const String16& value);
    status_t writeByteVector(const std::vector<uint8_t>& value) { return writePlainVector(value); }
    status_t writeBoolVector(const std::vector<bool>& value);
    status_t writeInt32Vector(const std::vector<int32_t>& value) { return writePlainVector(value); }
    status_t writeInt64Vector(const std::vector<int64_t>& value) { return writePlainVector(value); }
    status_t writeDoubleVector(const std::vector<double>& value) { return writePlainVector(value); }
    status_t writeString16Vector(const std::vector<String16>& value);
    /** Null is allowed and arrives as null. */
    status_t writeStrongBinder(const sp<IBinder>& value);
    /** Duplicates `fd`; the caller keeps its own. */
    status_t writeDupFileDescriptor(int fd);
    status_t writeParcelable(const Parcelable& value);

    status_t read(void* bytes, size_t size) const;
    /** The next `size` bytes, padded, inside the parcel; null when they are not there. */
    const void* readInplace(size_t size) const;
    status_t readInt32(int32_t* value) const { return read(value, sizeof *value); }
    status_t readInt64(int64_t* value) const { return read(value, sizeof *value); }
    status_t readDouble(double* value) const { return read(value, sizeof *value); }
    status_t readBool(bool* value) const;
    status_t readString16(String16* value) const;
    status_t readByteVector(std::vector<uint8_t>* value) const { return readPlainVector(value); }
    status_t readBoolVector(std::vector<bool>* value) const;
    status_t readInt32Vector(std::vector<int32_t>* value) const { return readPlainVector(value); }
    status_t readInt64Vector(std::vector<int64_t>* value) const { return readPlainVector(value); }
    status_t readDoubleVector(std::vector<double>* value) const { return readPlainVector(value); }
    status_t readString16Vector(std::vector<String16>* value) const;
    /** UNEXPECTED_NULL for a null binder. */
    status_t readStrongBinder(sp<IBinder>* value) const;
    status_t readNullableStrongBinder(sp<IBinder>* value) const;
    /** As above, converted to the interface `T`; UNKNOWN_ERROR when the conversion gives null. */
    template <typename T>
    status_t readStrongBinder(sp<T>* value) const;
    status_t readParcelable(Parcelable* value) const;

    // The same reads with a neutral answer (0, false, empty, null, -1) for whatever goes wrong.
    int32_t readInt32() const {
        int32_t value = 0;
        readInt32(&value);
        return value;
    }
    bool readBool() const { return readInt32() != 0; }
    String16 readString16() const {
        String16 value;
        readString16(&value);
        return value;
    }
    sp<IBinder> readStrongBinder() const;
    /** A descriptor that stays the parcel's own. */
    int readFileDescriptor() const;

    /** Any flattenable, seen through four virtual operations. */
    class FlattenableHelperInterface {
    public:
        virtual size_t getFlattenedSize() const = 0;
        virtual size_t getFdCount() const = 0;
        virtual status_t flatten(void* buffer, size_t size, int* fds, size_t count) const = 0;
        virtual status_t unflatten(const void* buffer, size_t size, const int* fds,
                                   size_t count) = 0;

    protected:
        ~FlattenableHelperInterface() = default;
    };

    /** Adapter from a Flattenable<T> that outlives it. */
    template <typename T>
    class FlattenableHelper final : public FlattenableHelperInterface {
    public:
        explicit FlattenableHelper(const Flattenable<T>& value) : mValue(value) {}

        size_t getFlattenedSize() const override { return mValue.getFlattenedSize(); }
        size_t getFdCount() const override { return mValue.getFdCount(); }
        status_t flatten(void* buffer, size_t size, int* fds, size_t count) const override {
            return mValue.flatten(buffer, size, fds, count);
        }
        status_t unflatten(const void* buffer, size_t size, const int* fds, size_t count) override {
            return const_cast<Flattenable<T>&>(mValue).unflatten(buffer, size, fds, count);
        }

    private:
        const Flattenable<T>& mValue;
    };

    status_t write(const FlattenableHelperInterface& value);
    status_t read(FlattenableHelperInterface& value) const;
    template <typename T>
    status_t write(const Flattenable<T>& value) {
        const FlattenableHelper<T> helper(value);
        return write(helper);
    }
    template <typename T>
    status_t read(Flattenable<T>& value) const {
        FlattenableHelper<T> helper(value);
        return read(helper);
    }

    /** The binders and descriptors, in the order of their offsets. For the transport. */
    const std::vector<ParcelObject>& objects() const { return mObjects; }
    /**
     * Replaces the content by what a peer sent and owns the descriptors from here on, whatever the
     * result. BAD_VALUE when an object lies outside the data or upon another: the parcel is then
     * empty. For the transport.
     */
    status_t ipcSetData(std::vector<uint8_t> data, std::vector<ParcelObject> objects);

private:
    template <typename T>
    status_t writePlainVector(const std::vector<T>& value);
    template <typename T>
    status_t readPlainVector(std::vector<T>* value) const;
    status_t readCount(size_t elementSize, size_t* count) const;
    status_t writeObject(uint32_t type, ParcelObject object);
    status_t readObject(uint32_t* type, const ParcelObject** object) const;
    void dropObjects(size_t begin, size_t end);

    std::vector<uint8_t> mData;
    std::vector<ParcelObject> mObjects;
    mutable size_t mPosition = 0;
};

template <typename T>
status_t Parcel::writePlainVector(const std::vector<T>& value) {
    if (value.size() > INT32_MAX / sizeof(T)) {
        return BAD_VALUE;
    }
    const status_t status = writeInt32(static_cast<int32_t>(value.size()));
    return status == OK ? write(value.data(), value.size() * sizeof(T)) : status;
}

template <typename T>
status_t Parcel::readPlainVector(std::vector<T>* value) const {
    size_t count = 0;
    status_t status = readCount(sizeof(T), &count);
    if (status != OK) {
        return status;
    }
    std::vector<T> result(count);
    if ((status = read(result.data(), count * sizeof(T))) == OK) {
        *value = std::move(result);
    }
    return status;
}

template <typename T>
status_t Parcel::readStrongBinder(sp<T>* value) const {
    sp<IBinder> binder;
    const status_t status = readStrongBinder(&binder);
    if (status != OK) {
        return status;
    }
    *value = T::asInterface(binder);
    return *value != nullptr ? OK : UNKNOWN_ERROR;
}

}  // namespace android
