// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>
#include <binder/Parcel.h>
#include <binder/Parcelable.h>
#include <utils/Errors.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <vector>

/**
 * The items of a parcel as a list, so that an interface's layouts are written once for each side:
 * writeItems(parcel, feature, data) and readItems(parcel, &feature, &data) stop at the first item
 * that fails and return its error.
 */
namespace com {
namespace tivora {
namespace displayengine {
namespace items {

inline android::status_t write(android::Parcel& parcel, int32_t value) {
    return parcel.writeInt32(value);
}
inline android::status_t write(android::Parcel& parcel, bool value) {
    return parcel.writeBool(value);
}
inline android::status_t write(android::Parcel& parcel, const std::vector<int32_t>& value) {
    return parcel.writeInt32Vector(value);
}
inline android::status_t write(android::Parcel& parcel, const std::vector<uint8_t>& value) {
    return parcel.writeByteVector(value);
}
inline android::status_t write(android::Parcel& parcel, const android::Parcelable& value) {
    return parcel.writeParcelable(value);
}
template <typename INTERFACE>
android::status_t write(android::Parcel& parcel, const android::sp<INTERFACE>& value) {
    return parcel.writeStrongBinder(android::IInterface::asBinder(value));
}

inline android::status_t read(const android::Parcel& parcel, int32_t* value) {
    return parcel.readInt32(value);
}
inline android::status_t read(const android::Parcel& parcel, bool* value) {
    return parcel.readBool(value);
}
inline android::status_t read(const android::Parcel& parcel, std::vector<int32_t>* value) {
    return parcel.readInt32Vector(value);
}
inline android::status_t read(const android::Parcel& parcel, std::vector<uint8_t>* value) {
    return parcel.readByteVector(value);
}
inline android::status_t read(const android::Parcel& parcel, android::Parcelable* value) {
    return parcel.readParcelable(value);
}
template <typename INTERFACE>
android::status_t read(const android::Parcel& parcel, android::sp<INTERFACE>* value) {
    return parcel.readStrongBinder(value);
}

template <typename... ITEMS>
android::status_t writeItems(android::Parcel& parcel, const ITEMS&... values) {
    android::status_t status = android::OK;
    static_cast<void>((((status = write(parcel, values)) == android::OK) && ...));
    return status;
}

template <typename... ITEMS>
android::status_t readItems(const android::Parcel& parcel, ITEMS*... values) {
    android::status_t status = android::OK;
    static_cast<void>((((status = read(parcel, values)) == android::OK) && ...));
    return status;
}

}  // namespace items
}  // namespace displayengine
}  // namespace tivora
}  // namespace com
