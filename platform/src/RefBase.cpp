// SPDX-License-Identifier: Apache-2.0
#include <utils/RefBase.h>

namespace android {

RefBase::RefBase() : mRefs(new weakref_type(this)) {}

RefBase::~RefBase() {
    // An object that was never held (a member, or deleted directly) can still have weak references;
    // they must find it gone.
    mRefs->mStrong.store(0, std::memory_order_release);
    mRefs->decWeak(this);
}

void RefBase::incStrong(const void* /*id*/) const {
    mRefs->noteFirst(mRefs->mStrong.fetch_add(1, std::memory_order_relaxed));
}

void RefBase::decStrong(const void* /*id*/) const {
    if (mRefs->mStrong.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

int32_t RefBase::getStrongCount() const {
    const int32_t count = mRefs->mStrong.load(std::memory_order_relaxed);
    return count == weakref_type::kNeverHeld ? 0 : count;
}

RefBase::weakref_type* RefBase::createWeak(const void* id) const {
    mRefs->incWeak(id);
    return mRefs;
}

void RefBase::weakref_type::noteFirst(int32_t previous) {
    if (previous == kNeverHeld) {
        mStrong.fetch_sub(kNeverHeld, std::memory_order_relaxed);
        mObject->onFirstRef();
    }
}

void RefBase::weakref_type::decWeak(const void* /*id*/) {
    if (mWeak.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        delete this;
    }
}

bool RefBase::weakref_type::attemptIncStrong(const void* /*id*/) {
    int32_t count = mStrong.load(std::memory_order_relaxed);
    while (count > 0) {
        if (mStrong.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel)) {
            noteFirst(count);
            return true;
        }
    }
    return false;
}

}  // namespace android
