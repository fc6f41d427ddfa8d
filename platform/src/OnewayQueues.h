#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "Connection.h"
#include "ThreadPool.h"

namespace android {
namespace transport {

/// The oneway calls that wait, in a queue for each object: they run in the order of their arrival
/// and one at a time, whichever peers they come from.
class OnewayQueues {
public:
    explicit OnewayQueues(ThreadPool& pool) : mPool(pool) {}

    /// Queues a call. When its object is at rest, the job to run it is added to `jobs`.
    void add(std::shared_ptr<IncomingCall> call, std::vector<ThreadPool::Job>* jobs);

private:
    void runFirst(IBinder* object);

    ThreadPool& mPool;
    std::mutex mLock;
    // Guarded by mLock. The calls hold their object; the first of a queue is the one that runs.
    std::unordered_map<IBinder*, std::deque<std::shared_ptr<IncomingCall>>> mQueues;
};

}  // namespace transport
}  // namespace android
