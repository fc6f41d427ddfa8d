// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <utility>

namespace android {

/**
 * Owning pointer to an object that counts its own references (see RefBase). Distinct `sp` objects
 * may be used from any thread; one and the same `sp` needs the caller's own locking.
 */
template <typename T>
class sp {
public:
    sp() = default;
    sp(std::nullptr_t) {}
    sp(T* object) : mPointer(object) {
        if (object != nullptr) {
            object->incStrong(this);
        }
    }
    sp(const sp& other) : sp(other.mPointer) {}
    sp(sp&& other) noexcept : mPointer(std::exchange(other.mPointer, nullptr)) {}
    template <typename U>
    sp(const sp<U>& other) : sp(other.get()) {}
    ~sp() { clear(); }

    // By value: the previous object is released only after the new one is held, and after this
    // pointer already names it, so that a destructor that looks back finds no stale pointer.
    sp& operator=(sp other) {
        swap(other);
        return *this;
    }

    void clear() {
        if (T* object = std::exchange(mPointer, nullptr)) {
            object->decStrong(this);
        }
    }
    void swap(sp& other) noexcept { std::swap(mPointer, other.mPointer); }

    T* get() const { return mPointer; }
    T& operator*() const { return *mPointer; }
    T* operator->() const { return mPointer; }
    explicit operator bool() const { return mPointer != nullptr; }

    template <typename U>
    bool operator==(const sp<U>& other) const {
        return mPointer == other.get();
    }
    template <typename U>
    bool operator!=(const sp<U>& other) const {
        return mPointer != other.get();
    }
    bool operator==(std::nullptr_t) const { return mPointer == nullptr; }
    bool operator!=(std::nullptr_t) const { return mPointer != nullptr; }

private:
    template <typename U>
    friend class wp;

    T* mPointer = nullptr;
};

}  // namespace android
