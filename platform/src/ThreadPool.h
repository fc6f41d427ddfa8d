// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include <utils/Mutex.h>

#include "UniqueFd.h"

namespace android {
namespace transport {

class Connection;

/**
 * The threads that run what peers ask for. Idle ones wait, all together, for any connection to
 * become readable or for work; whichever wakes reads and runs what it read, while the others go on
 * waiting. One more is started when none would be left.
 */
class ThreadPool {
public:
    using Job = std::function<void()>;

    /**
     * Whether it has its descriptors. While the process can open no more, it has not, and nothing
     * can be watched; each call tries again.
     */
    bool ready();

    /** Starts the first thread; only once. */
    void start();
    /** Gives the calling thread to the pool for good. */
    [[noreturn]] void join();
    /** True once any thread has been started or given. */
    bool active() const;

    /** Has a job run by a thread of the pool. Without threads it stays until there are some. */
    void post(Job job);

    /**
     * Puts a job behind the others of `key`, of which only one runs at a time. True when there are
     * no others: then runQueued has to be called, as a job.
     */
    bool queue(const void* key, Job job);
    void runQueued(const void* key);

    /** Has `connection` read by the pool whenever it is readable, as soon as it is armed. */
    void watch(const std::shared_ptr<Connection>& connection);
    void unwatch(Connection* connection);
    /** Asks for the next notice of readability, which disarms again. */
    void arm(Connection* connection);
    void disarm(Connection* connection);

    /**
     * Takes up no more work and waits for the jobs that are running, except the calling thread's
     * own. For exit.
     */
    void stop();

private:
    [[noreturn]] void run(bool started);
    std::vector<Job> waitForWork();
    void callTaker() REQUIRES(mLock);
    void startThread() REQUIRES(mLock);

    // Written under mLock, and never again once the pool is ready.
    ForkSafeFd mEpoll;
    ForkSafeFd mWakeup;

    mutable Mutex mLock;
    std::condition_variable mJobDone;
    std::deque<Job> mJobs GUARDED_BY(mLock);
    // The first of each is running.
    std::unordered_map<const void*, std::deque<Job>> mQueues GUARDED_BY(mLock);
    std::unordered_map<uint64_t, std::shared_ptr<Connection>> mWatched GUARDED_BY(mLock);
    size_t mStarted GUARDED_BY(mLock) = 0;  // threads that the pool has started itself
    size_t mIdle GUARDED_BY(mLock) = 0;     // threads that wait, and started ones that are about to
    size_t mRunning GUARDED_BY(mLock) = 0;  // jobs
    bool mMayStart GUARDED_BY(mLock) = false;
    bool mActive GUARDED_BY(mLock) = false;
    bool mStopping GUARDED_BY(mLock) = false;
};

}  // namespace transport
}  // namespace android
