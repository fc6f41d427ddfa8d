// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include <utils/StrongPointer.h>

namespace android {

/**
 * Base of every object shared through `sp` and `wp`. The object deletes itself when its last
 * strong reference goes; weak references keep only its counts. Derive virtually where a class may
 * meet it twice. All operations may be called from any thread.
 */
class RefBase {
public:
    class weakref_type;

    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

    /**
     * Adds a strong reference; the caller already holds one or has just created the object. The
     * argument names the holder for debugging and is not used here.
     */
    void incStrong(const void* id) const;
    /** Drops a strong reference; the last one deletes the object before this returns. */
    void decStrong(const void* id) const;
    /** Strong references at this moment; 0 before the first. For diagnostics and tests. */
    int32_t getStrongCount() const;

    /** Adds a weak reference and returns the counts, to be given back by decWeak(). */
    weakref_type* createWeak(const void* id) const;

protected:
    RefBase();
    virtual ~RefBase();

    /** Called once, on the thread that takes the first strong reference. */
    virtual void onFirstRef() {}

private:
    weakref_type* const mRefs;
};

/** The counts of one object. They outlive the object until the last weak reference is dropped. */
class RefBase::weakref_type final {
public:
    void incWeak(const void* /*id*/) { mWeak.fetch_add(1, std::memory_order_relaxed); }
    void decWeak(const void* id);
    /** Adds a strong reference when the object still lives; false when it is gone or going. */
    bool attemptIncStrong(const void* id);

private:
    friend class RefBase;

    explicit weakref_type(RefBase* object) : mObject(object) {}
    ~weakref_type() = default;
    /** Goes on from a count of `previous` strong references, to which one was added. */
    void noteFirst(int32_t previous);

    // Before the first strong reference the count stands at this value, so that a weak reference
    // tells "not yet held" from "gone".
    static constexpr int32_t kNeverHeld = 1 << 28;

    RefBase* const mObject;
    std::atomic<int32_t> mStrong{kNeverHeld};
    std::atomic<int32_t> mWeak{1};  // one of them is the object's own
};

/** Pointer to an object that may go at any time; only promote() gives access to it. */
template <typename T>
class wp {
public:
    wp() = default;
    wp(T* object)
        : mPointer(object), mRefs(object != nullptr ? object->createWeak(this) : nullptr) {}
    template <typename U>
    wp(const sp<U>& object) : wp(static_cast<T*>(object.get())) {}
    wp(const wp& other) : mPointer(other.mPointer), mRefs(other.mRefs) {
        if (mRefs != nullptr) {
            mRefs->incWeak(this);
        }
    }
    ~wp() {
        if (mRefs != nullptr) {
            mRefs->decWeak(this);
        }
    }

    wp& operator=(wp other) {
        std::swap(mPointer, other.mPointer);
        std::swap(mRefs, other.mRefs);
        return *this;
    }

    /** A strong pointer to the object, null when it is gone. */
    sp<T> promote() const {
        sp<T> result;
        if (mRefs != nullptr && mRefs->attemptIncStrong(&result)) {
            result.mPointer = mPointer;
        }
        return result;
    }
    /** The address, for comparison only: the object may be gone. */
    T* unsafe_get() const { return mPointer; }

private:
    T* mPointer = nullptr;
    RefBase::weakref_type* mRefs = nullptr;
};

}  // namespace android
