// SPDX-License-Identifier: Apache-2.0
// What a parcel holds besides plain values: binders, file descriptors, parcelables, flattenables.

#include <binder/Parcel.h>
#include <binder/Stability.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>

#include "UniqueFd.h"

namespace android {
namespace {

/** Placeholder of a binder or descriptor in the flat data. */
struct FlatObject {
    uint32_t type;
    uint32_t flags;
    uint64_t handle;
    uint64_t cookie;
};
static_assert(sizeof(FlatObject) == 24, "the placeholder's layout is published");

constexpr uint32_t packType(char c1, char c2, char c3) {
    return (static_cast<uint32_t>(c1) << 24) | (static_cast<uint32_t>(c2) << 16) |
           (static_cast<uint32_t>(c3) << 8) | 0x85;
}

constexpr uint32_t kLocalBinder = packType('s', 'b', '*');
constexpr uint32_t kRemoteBinder = packType('s', 'h', '*');
constexpr uint32_t kDescriptor = packType('f', 'd', '*');
constexpr uint32_t kFlags = 0x17f;  // any priority, descriptors accepted

constexpr size_t kMaxDescriptors = 1024;

bool isBinder(uint32_t type) {
    return type == kLocalBinder || type == kRemoteBinder;
}

void closeAll(const std::vector<ParcelObject>& objects) {
    for (const ParcelObject& object : objects) {
        if (object.fd >= 0) {
            close(object.fd);
        }
    }
}

/** Whether the objects, sorted, lie inside `size` bytes and apart from each other. */
bool isPlausible(const std::vector<ParcelObject>& objects, size_t size) {
    size_t end = 0;
    for (const ParcelObject& object : objects) {
        if (object.offset < end || object.offset > size ||
            size - object.offset < sizeof(FlatObject)) {
            return false;
        }
        end = object.offset + sizeof(FlatObject);
    }
    return true;
}

}  // namespace

// The table of objects ---------------------------------------------------------------------------

void Parcel::freeData() {
    closeAll(mObjects);
    mObjects.clear();
    mData.clear();
    mPosition = 0;
}

status_t Parcel::ipcSetData(std::vector<uint8_t> data, std::vector<ParcelObject> objects) {
    freeData();
    std::sort(objects.begin(), objects.end(),
              [](const ParcelObject& a, const ParcelObject& b) { return a.offset < b.offset; });
    if (data.size() > INT32_MAX || !isPlausible(objects, data.size())) {
        closeAll(objects);
        return BAD_VALUE;
    }
    mData = std::move(data);
    mObjects = std::move(objects);
    return OK;
}

void Parcel::dropObjects(size_t begin, size_t end) {
    const auto first = std::find_if(mObjects.begin(), mObjects.end(), [begin](const auto& object) {
        return object.offset + sizeof(FlatObject) > begin;
    });
    const auto last = std::find_if(
        first, mObjects.end(), [end](const ParcelObject& object) { return object.offset >= end; });
    std::vector<ParcelObject> dropped(std::make_move_iterator(first),
                                      std::make_move_iterator(last));
    mObjects.erase(first, last);
    closeAll(dropped);
}

status_t Parcel::writeObject(uint32_t type, ParcelObject object) {
    object.offset = mPosition;
    const bool isNull = object.binder == nullptr && object.fd < 0;
    const FlatObject flat{type, kFlags, isNull ? 0 : mObjects.size() + 1, 0};
    const status_t status = write(&flat, sizeof flat);
    if (status != OK) {
        return status;
    }
    // A null binder needs no entry: there is nothing to carry.
    if (!isNull) {
        const auto place = std::upper_bound(
            mObjects.begin(), mObjects.end(), object.offset,
            [](size_t offset, const ParcelObject& other) { return offset < other.offset; });
        mObjects.insert(place, std::move(object));
    }
    return OK;
}

status_t Parcel::readObject(uint32_t* type, const ParcelObject** object) const {
    const size_t offset = mPosition;
    FlatObject flat{};
    const status_t status = read(&flat, sizeof flat);
    if (status != OK) {
        return status;
    }
    *type = flat.type;
    *object = nullptr;
    if (isBinder(flat.type) && flat.handle == 0 && flat.cookie == 0) {
        return OK;
    }
    const auto found = std::lower_bound(
        mObjects.begin(), mObjects.end(), offset,
        [](const ParcelObject& other, size_t wanted) { return other.offset < wanted; });
    if (found == mObjects.end() || found->offset != offset) {
        return BAD_TYPE;
    }
    *object = &*found;
    return OK;
}

// Binders and descriptors ------------------------------------------------------------------------

status_t Parcel::writeStrongBinder(const sp<IBinder>& value) {
    const bool remote = value != nullptr && value->localBinder() == nullptr;
    ParcelObject object;
    object.binder = value;
    const status_t status = writeObject(remote ? kRemoteBinder : kLocalBinder, std::move(object));
    return status == OK ? writeInt32(internal::Stability::getStability(value.get())) : status;
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* value) const {
    uint32_t type = 0;
    const ParcelObject* object = nullptr;
    status_t status = readObject(&type, &object);
    if (status != OK) {
        return status;
    }
    if (!isBinder(type) || (object != nullptr && object->binder == nullptr)) {
        return BAD_TYPE;
    }
    int32_t stability = 0;
    if ((status = readInt32(&stability)) != OK) {
        return status;
    }
    *value = object != nullptr ? object->binder : nullptr;
    // An object of this process that comes home keeps the mark it was given here.
    if (*value != nullptr && (*value)->localBinder() == nullptr) {
        internal::Stability::setStability(value->get(), stability);
    }
    return OK;
}

status_t Parcel::readStrongBinder(sp<IBinder>* value) const {
    sp<IBinder> binder;
    const status_t status = readNullableStrongBinder(&binder);
    if (status != OK) {
        return status;
    }
    if (binder == nullptr) {
        return UNEXPECTED_NULL;
    }
    *value = binder;
    return OK;
}

sp<IBinder> Parcel::readStrongBinder() const {
    sp<IBinder> value;
    readNullableStrongBinder(&value);
    return value;
}

status_t Parcel::writeDupFileDescriptor(int fd) {
    transport::UniqueFd duplicate(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (!duplicate.ok()) {
        return -errno;
    }
    ParcelObject object;
    object.fd = duplicate.get();
    const status_t status = writeObject(kDescriptor, std::move(object));
    if (status == OK) {
        duplicate.release();
    }
    return status;
}

int Parcel::readFileDescriptor() const {
    uint32_t type = 0;
    const ParcelObject* object = nullptr;
    const bool found = readObject(&type, &object) == OK && type == kDescriptor;
    return found ? object->fd : -1;
}

// Parcelables and flattenables -------------------------------------------------------------------

status_t Parcel::writeParcelable(const Parcelable& value) {
    const status_t status = writeInt32(1);
    return status == OK ? value.writeToParcel(this) : status;
}

status_t Parcel::readParcelable(Parcelable* value) const {
    int32_t present = 0;
    const status_t status = readInt32(&present);
    if (status != OK) {
        return status;
    }
    return present != 0 ? value->readFromParcel(this) : status_t{UNEXPECTED_NULL};
}

status_t Parcel::write(const FlattenableHelperInterface& value) {
    const size_t size = value.getFlattenedSize();
    const size_t count = value.getFdCount();
    if (size > INT32_MAX || count > kMaxDescriptors) {
        return BAD_VALUE;
    }
    void* bytes = nullptr;
    if (writeInt32(static_cast<int32_t>(size)) != OK ||
        writeInt32(static_cast<int32_t>(count)) != OK ||
        ((bytes = writeInplace(size)) == nullptr && size > 0)) {
        return NO_MEMORY;
    }
    std::vector<int> fds(count, -1);
    status_t status = value.flatten(bytes, size, fds.data(), count);
    for (size_t i = 0; i < count && status == OK; ++i) {
        status = writeDupFileDescriptor(fds[i]);
    }
    return status;
}

status_t Parcel::read(FlattenableHelperInterface& value) const {
    size_t size = 0;
    int32_t count = 0;
    status_t status = readCount(1, &size);
    if (status != OK || (status = readInt32(&count)) != OK) {
        return status;
    }
    if (count < 0 || static_cast<size_t>(count) > kMaxDescriptors) {
        return BAD_VALUE;
    }
    const void* bytes = readInplace(size);
    if ((bytes == nullptr && size > 0) ||
        static_cast<size_t>(count) > dataAvail() / sizeof(FlatObject)) {
        return NOT_ENOUGH_DATA;
    }
    std::vector<int> fds(static_cast<size_t>(count));
    for (int& fd : fds) {
        if ((fd = readFileDescriptor()) < 0) {
            return BAD_TYPE;
        }
    }
    return value.unflatten(bytes, size, fds.data(), fds.size());
}

}  // namespace android
