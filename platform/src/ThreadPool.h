#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "UniqueFd.h"

namespace android {
namespace transport {

class Connection;

/// The threads that run what peers ask for. Idle ones wait, all together, for any connection to
/// become readable or for work; whichever wakes reads and runs what it read, while the others go on
/// waiting. One more is started when none would be left.
class ThreadPool {
public:
    using Job = std::function<void()>;

    ThreadPool();

    /// Starts the first thread; only once.
    void start();
    /// Gives the calling thread to the pool for good.
    [[noreturn]] void join();
    /// True once any thread has been started or given.
    bool active() const;

    /// Has a job run by a thread of the pool. Without threads it stays until there are some.
    void post(Job job);

    /// Puts a job behind the others of `key`, of which only one runs at a time. True when there are
    /// no others: then runQueued has to be called, as a job.
    bool queue(const void* key, Job job);
    void runQueued(const void* key);

    /// Has `connection` read by the pool whenever it is readable, as soon as it is armed.
    void watch(const std::shared_ptr<Connection>& connection);
    void unwatch(Connection* connection);
    /// Asks for the next notice of readability, which disarms again.
    void arm(Connection* connection);
    void disarm(Connection* connection);

    /// Takes up no more work and waits for the jobs that are running, except the calling thread's
    /// own. For exit.
    void stop();

private:
    [[noreturn]] void run(bool started);
    std::vector<Job> waitForWork();
    void callTaker();
    void startThread();

    ForkSafeFd mEpoll;
    ForkSafeFd mWakeup;

    mutable std::mutex mLock;
    std::condition_variable mJobDone;
    // All below guarded by mLock.
    std::deque<Job> mJobs;
    std::unordered_map<const void*, std::deque<Job>> mQueues;  // the first of each is running
    std::unordered_map<uint64_t, std::shared_ptr<Connection>> mWatched;
    size_t mStarted = 0;  // threads that the pool has started itself
    size_t mIdle = 0;     // threads that wait, and started ones that are about to
    size_t mRunning = 0;  // jobs
    bool mMayStart = false;
    bool mActive = false;
    bool mStopping = false;
};

}  // namespace transport
}  // namespace android
