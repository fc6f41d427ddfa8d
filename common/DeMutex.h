// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <mutex>

// Locking rules that clang verifies (-Wthread-safety); to other compilers they are comments.
#if defined(__clang__)
#define DE_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define DE_THREAD_ANNOTATION(attribute)
#endif

/** Marks a member that may be used only while the given mutex is held. */
#define DE_GUARDED_BY(mutex) DE_THREAD_ANNOTATION(guarded_by(mutex))
/** Marks a function whose caller holds the given mutexes. */
#define DE_REQUIRES(...) DE_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/** Marks a function that takes the given mutexes itself: its caller holds none of them. */
#define DE_EXCLUDES(...) DE_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/** Marks a mutex that is taken after the given ones when both are held. */
#define DE_ACQUIRED_AFTER(...) DE_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
/** Exempts a function from the rules. A comment beside it says why they do not apply there. */
#define DE_NO_THREAD_SAFETY_ANALYSIS DE_THREAD_ANNOTATION(no_thread_safety_analysis)

/**
 * A std::mutex, in size and cost, that the rules above can name. DeMutexLock takes it. It is never
 * destroyed, since threads may still be about to take it while the process exits; a mutex needs no
 * destruction on the platforms there are.
 */
class DE_THREAD_ANNOTATION(capability("mutex")) DeMutex {
public:
    constexpr DeMutex() : mMutex() {}
    ~DeMutex() {}  // NOLINT(modernize-use-equals-default): the mutex in the union has one.
    DeMutex(const DeMutex&) = delete;
    DeMutex& operator=(const DeMutex&) = delete;

private:
    friend class DeMutexLock;

    union {
        std::mutex mMutex;
    };
};

/** Holds a mutex until the end of the scope: a std::unique_lock, in size and cost. */
class DE_THREAD_ANNOTATION(scoped_lockable) DeMutexLock {
public:
    /** Takes the mutex. */
    explicit DeMutexLock(DeMutex& mutex) DE_THREAD_ANNOTATION(acquire_capability(mutex))
        : mLock(mutex.mMutex) {}
    ~DeMutexLock() DE_THREAD_ANNOTATION(release_capability()) = default;
    DeMutexLock(const DeMutexLock&) = delete;
    DeMutexLock& operator=(const DeMutexLock&) = delete;

    /** Lets go of the mutex early. */
    void unlock() DE_THREAD_ANNOTATION(release_capability()) { mLock.unlock(); }
    /** Takes the mutex again after unlock(). */
    void lock() DE_THREAD_ANNOTATION(acquire_capability()) { mLock.lock(); }

    /** For a condition variable's wait, which returns with the mutex held as before. */
    std::unique_lock<std::mutex>& native() { return mLock; }

private:
    std::unique_lock<std::mutex> mLock;
};

static_assert(sizeof(DeMutex) == sizeof(std::mutex));
static_assert(sizeof(DeMutexLock) == sizeof(std::unique_lock<std::mutex>));
