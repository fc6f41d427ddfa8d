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
#include <utility>

#include "NoMemory.h"
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

constexpr uint32_t kLocalBinder = 0x73622a85;   // "sb*" and 0x85
constexpr uint32_t kRemoteBinder = 0x73682a85;  // "sh*"
constexpr uint32_t kDescriptor = 0x66642a85;    // "fd*"
constexpr uint32_t kFlags = 0x17f;              // any priority, descriptors accepted

bool isBinder(uint32_t type) {
    return type == kLocalBinder || type == kRemoteBinder;
}

using ObjectPlace = std::vector<ParcelObject>::const_iterator;

/** The first object at `offset` or behind it. */
ObjectPlace firstFrom(const std::vector<ParcelObject>& objects, size_t offset) {
    return std::lower_bound(
        objects.begin(), objects.end(), offset,
        [](const ParcelObject& object, size_t wanted) { return object.offset < wanted; });
}

void closeAll(ObjectPlace first, ObjectPlace last) {
    for (; first != last; ++first) {
        if (first->fd >= 0) {
            close(first->fd);
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

status_t Parcel::ipcSetData(std::vector<uint8_t> data, std::vector<ParcelObject> objects) {
    freeData();
    std::sort(objects.begin(), objects.end(),
              [](const ParcelObject& a, const ParcelObject& b) { return a.offset < b.offset; });
    if (data.size() > INT32_MAX || !isPlausible(objects, data.size())) {
        closeAll(objects.begin(), objects.end());
        return BAD_VALUE;
    }
    mData = std::move(data);
    mObjects = std::move(objects);
    return OK;
}

/** Removes the objects whose placeholders share bytes with [begin, end). */
void Parcel::dropObjects(size_t begin, size_t end) {
    const ObjectPlace first = firstFrom(mObjects, begin - std::min(begin, sizeof(FlatObject) - 1));
    const ObjectPlace last = firstFrom(mObjects, end);
    closeAll(first, last);
    mObjects.erase(first, last);
}

status_t Parcel::writeObject(uint32_t type, ParcelObject object) {
    object.offset = mPosition;
    const bool isNull = object.binder == nullptr && object.fd < 0;
    const FlatObject flat{type, kFlags, isNull ? 0 : mObjects.size() + 1, 0};
    const status_t status = write(&flat, sizeof flat);
    if (status != OK) {
        return status;
    }
    if (isNull) {
        return OK;  // nothing to carry
    }
    return orNoMemory(
        [&] { mObjects.insert(firstFrom(mObjects, object.offset), std::move(object)); });
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
    const ObjectPlace found = firstFrom(mObjects, offset);
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
    int32_t stability = 0;  // of no consequence here
    status = readInt32(&stability);
    if (status == OK) {
        *value = object != nullptr ? object->binder : nullptr;
    }
    return status;
}

status_t Parcel::readStrongBinder(sp<IBinder>* value) const {
    sp<IBinder> binder;
    const status_t status = readNullableStrongBinder(&binder);
    if (status != OK || binder == nullptr) {
        return status != OK ? status : status_t{UNEXPECTED_NULL};
    }
    *value = binder;
    return OK;
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
    return status == OK ? orNoMemory([&] { return value.writeToParcel(this); }) : status;
}

status_t Parcel::readParcelable(Parcelable* value) const {
    int32_t present = 0;
    const status_t status = readInt32(&present);
    if (status != OK) {
        return status;
    }
    return present != 0 ? orNoMemory([&] { return value->readFromParcel(this); })
                        : status_t{UNEXPECTED_NULL};
}

/** Writes what stands before the descriptors; `bytes` is where flatten() is to write. */
status_t Parcel::writeFlatHead(size_t size, size_t fdCount, void** bytes) {
    if (size > INT32_MAX || fdCount > kMaxDescriptors) {
        return BAD_VALUE;
    }
    if (writeInt32(static_cast<int32_t>(size)) != OK ||
        writeInt32(static_cast<int32_t>(fdCount)) != OK) {
        return NO_MEMORY;
    }
    *bytes = writeInplace(size);
    return *bytes != nullptr ? OK : NO_MEMORY;
}

status_t Parcel::readFlat(const void** bytes, size_t* size, int* fds, size_t* fdCount) const {
    int32_t count = 0;
    status_t status = readCount(1, size);
    if (status != OK || (status = readInt32(&count)) != OK) {
        return status;
    }
    *fdCount = static_cast<size_t>(count);
    if (count < 0 || *fdCount > kMaxDescriptors) {
        return BAD_VALUE;
    }
    *bytes = readInplace(*size);
    if (*bytes == nullptr || *fdCount > dataAvail() / sizeof(FlatObject)) {
        return NOT_ENOUGH_DATA;
    }
    for (size_t i = 0; i < *fdCount; ++i) {
        fds[i] = readFileDescriptor();
        if (fds[i] < 0) {
            return BAD_TYPE;
        }
    }
    return OK;
}

}  // namespace android
