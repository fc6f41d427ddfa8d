// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>

// Locking rules that clang verifies (-Wthread-safety); to other compilers they are comments.
#if defined(__clang__)
#define THREAD_ANNOTATION_ATTRIBUTE__(x) __attribute__((x))
#else
#define THREAD_ANNOTATION_ATTRIBUTE__(x)
#endif
#define CAPABILITY(x) THREAD_ANNOTATION_ATTRIBUTE__(capability(x))
#define SCOPED_CAPABILITY THREAD_ANNOTATION_ATTRIBUTE__(scoped_lockable)
#define GUARDED_BY(x) THREAD_ANNOTATION_ATTRIBUTE__(guarded_by(x))
#define REQUIRES(...) THREAD_ANNOTATION_ATTRIBUTE__(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) THREAD_ANNOTATION_ATTRIBUTE__(acquire_capability(__VA_ARGS__))
#define RELEASE(...) THREAD_ANNOTATION_ATTRIBUTE__(release_capability(__VA_ARGS__))
#define EXCLUDES(...) THREAD_ANNOTATION_ATTRIBUTE__(locks_excluded(__VA_ARGS__))

namespace android {

/** A mutex that the rules above can name. */
class CAPABILITY("mutex") Mutex {
public:
    constexpr Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() ACQUIRE() { mMutex.lock(); }
    void unlock() RELEASE() { mMutex.unlock(); }

    /** Holds a mutex until the end of the scope, except between unlock() and lock(). */
    class SCOPED_CAPABILITY Autolock {
    public:
        explicit Autolock(Mutex& mutex) ACQUIRE(mutex) : mLock(mutex.mMutex) {}
        ~Autolock() RELEASE() = default;
        Autolock(const Autolock&) = delete;
        Autolock& operator=(const Autolock&) = delete;

        void unlock() RELEASE() { mLock.unlock(); }
        void lock() ACQUIRE() { mLock.lock(); }
        /** For a condition variable's wait, which returns with the mutex held as before. */
        std::unique_lock<std::mutex>& native() { return mLock; }

    private:
        std::unique_lock<std::mutex> mLock;
    };

private:
    std::mutex mMutex;
};

}  // namespace android
