// SPDX-License-Identifier: Apache-2.0
#include "ThreadPool.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <thread>

#include <android/log.h>

#include "Connection.h"

namespace android {
namespace transport {
namespace {

constexpr size_t kMaxThreads = 15;
constexpr uint64_t kWakeupId = 0;

/** Jobs that this thread is in the middle of: a job may end the process. */
thread_local size_t tRunningHere = 0;

void control(int epoll, int operation, int fd, uint32_t events, uint64_t id) {
    epoll_event event = {};
    event.events = events;
    event.data.u64 = id;
    ::epoll_ctl(epoll, operation, fd, &event);
}

}  // namespace

bool ThreadPool::ready() {
    const Mutex::Autolock lock(mLock);
    if (!mWakeup.ok()) {
        ForkSafeFd epoll(::epoll_create1(EPOLL_CLOEXEC));
        ForkSafeFd wakeup(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (epoll.ok() && wakeup.ok()) {
            // Edge-triggered: each write wakes one thread, and nobody needs to read.
            control(epoll.get(), EPOLL_CTL_ADD, wakeup.get(), EPOLLIN | EPOLLET, kWakeupId);
            mEpoll = std::move(epoll);
            mWakeup = std::move(wakeup);
        }
    }
    return mWakeup.ok();
}

void ThreadPool::start() {
    const Mutex::Autolock lock(mLock);
    if (!mMayStart) {
        mMayStart = true;
        mActive = true;
        startThread();
    }
}

void ThreadPool::join() {
    {
        const Mutex::Autolock lock(mLock);
        mActive = true;
    }
    run(false);
}

bool ThreadPool::active() const {
    const Mutex::Autolock lock(mLock);
    return mActive;
}

void ThreadPool::startThread() {
    try {
        std::thread([this] { run(true); }).detach();
        ++mStarted;
        ++mIdle;
    } catch (const std::system_error& error) {
        __android_log_print(ANDROID_LOG_WARN, "binder", "cannot start a pool thread: %s",
                            error.what());
    }
}

void ThreadPool::post(Job job) {
    const Mutex::Autolock lock(mLock);
    mJobs.push_back(std::move(job));
    callTaker();
}

/** Sees to it that somebody takes the first job up. */
void ThreadPool::callTaker() {
    if (mIdle > 0) {
        const uint64_t one = 1;
        // The counter cannot overflow in the life of a process, so the write cannot fail.
        [[maybe_unused]] const ssize_t written = ::write(mWakeup.get(), &one, sizeof(one));
    } else if (mMayStart && !mStopping && mStarted < kMaxThreads) {
        startThread();
    }
}

bool ThreadPool::queue(const void* key, Job job) {
    const Mutex::Autolock lock(mLock);
    std::deque<Job>& jobs = mQueues[key];
    jobs.push_back(std::move(job));
    return jobs.size() == 1;
}

void ThreadPool::runQueued(const void* key) {
    Job job;
    {
        const Mutex::Autolock lock(mLock);
        job = std::move(mQueues.at(key).front());
    }
    job();
    const Mutex::Autolock lock(mLock);
    const auto found = mQueues.find(key);
    found->second.pop_front();
    if (found->second.empty()) {
        mQueues.erase(found);
    } else {
        // Behind what else is waiting, so that a busy object does not starve the others.
        mJobs.push_back([this, key] { runQueued(key); });
        callTaker();
    }
}

void ThreadPool::run(bool started) {
    Mutex::Autolock lock(mLock);
    if (started) {
        --mIdle;  // counted since it was started
    }
    for (;;) {
        if (mStopping) {
            lock.unlock();
            for (;;) {
                ::pause();
            }
        }
        if (mJobs.empty()) {
            ++mIdle;
            lock.unlock();
            std::vector<Job> jobs = waitForWork();
            lock.lock();
            --mIdle;
            std::move(jobs.begin(), jobs.end(), std::back_inserter(mJobs));
            continue;
        }
        Job job = std::move(mJobs.front());
        mJobs.pop_front();
        if (!mJobs.empty() || mIdle == 0) {
            callTaker();  // for the other jobs, or to have the connections read meanwhile
        }
        ++mRunning;
        lock.unlock();
        ++tRunningHere;
        job();
        job = nullptr;
        --tRunningHere;
        lock.lock();
        --mRunning;
        mJobDone.notify_all();
    }
}

/** Waits, and reads the connection that has become readable; what is to be run of that. */
std::vector<ThreadPool::Job> ThreadPool::waitForWork() {
    if (!ready()) {
        const timespec moment = {0, 1'000'000};
        ::nanosleep(&moment, nullptr);
        return {};
    }
    epoll_event event = {};
    const int count = ::epoll_wait(mEpoll.get(), &event, 1, -1);
    const uint64_t id = event.data.u64;  // a copy: the record is packed, hence misaligned
    if (count != 1 || id == kWakeupId) {
        return {};
    }
    std::shared_ptr<Connection> connection;
    {
        const Mutex::Autolock lock(mLock);
        const auto found = mWatched.find(id);
        if (mStopping || found == mWatched.end()) {
            return {};
        }
        connection = found->second;
    }
    return connection->readAvailable();
}

void ThreadPool::watch(const std::shared_ptr<Connection>& connection) {
    const Mutex::Autolock lock(mLock);
    mWatched.emplace(connection->id(), connection);
    control(mEpoll.get(), EPOLL_CTL_ADD, connection->fd(), EPOLLIN | EPOLLONESHOT,
            connection->id());
}

void ThreadPool::unwatch(Connection* connection) {
    std::shared_ptr<Connection> last;  // let go of without the lock
    const Mutex::Autolock lock(mLock);
    const auto found = mWatched.find(connection->id());
    if (found != mWatched.end()) {
        control(mEpoll.get(), EPOLL_CTL_DEL, connection->fd(), 0, 0);
        last = std::move(found->second);
        mWatched.erase(found);
    }
}

void ThreadPool::arm(Connection* connection) {
    control(mEpoll.get(), EPOLL_CTL_MOD, connection->fd(), EPOLLIN | EPOLLONESHOT,
            connection->id());
}

void ThreadPool::disarm(Connection* connection) {
    control(mEpoll.get(), EPOLL_CTL_MOD, connection->fd(), EPOLLONESHOT, connection->id());
}

void ThreadPool::stop() {
    Mutex::Autolock lock(mLock);
    mStopping = true;
    mJobDone.wait(lock.native(), [this]() REQUIRES(mLock) { return mRunning <= tRunningHere; });
}

}  // namespace transport
}  // namespace android
