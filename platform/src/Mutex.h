// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>

// Locking rules that clang verifies (-Wthread-safety); to other compilers they are comments.
#if defined(__clang__)
#define THREAD_ANNOTATION(x) __attribute__((x))
#else
#define THREAD_ANNOTATION(x)
#endif
#define CAPABILITY(x) THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) THREAD_ANNOTATION(guarded_by(x))
#define REQUIRES(...) THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) THREAD_ANNOTATION(release_capability(__VA_ARGS__))

namespace android {

/** A mutex that the rules above can name. */
class CAPABILITY("mutex") Mutex {
public:
    void lock() ACQUIRE() { mMutex.lock(); }
    void unlock() RELEASE() { mMutex.unlock(); }

    /** Holds a mutex until the end of the scope or unlock(). */
    class SCOPED_CAPABILITY Autolock {
    public:
        explicit Autolock(Mutex& mutex) ACQUIRE(mutex) : mLock(mutex.mMutex) {}
        ~Autolock() RELEASE() = default;

        void unlock() RELEASE() { mLock.unlock(); }
        /** For a condition variable's wait, which returns with the mutex held as before. */
        std::unique_lock<std::mutex>& native() { return mLock; }

    private:
        std::unique_lock<std::mutex> mLock;
    };

private:
    std::mutex mMutex;
};

}  // namespace android
