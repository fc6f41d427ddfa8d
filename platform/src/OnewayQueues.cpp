#include "OnewayQueues.h"

#include <utility>

namespace android {
namespace transport {

void OnewayQueues::add(std::shared_ptr<IncomingCall> call, std::vector<ThreadPool::Job>* jobs) {
    IBinder* const object = call->target.get();
    const std::lock_guard<std::mutex> lock(mLock);
    auto& queue = mQueues[object];
    queue.push_back(std::move(call));
    if (queue.size() == 1) {
        jobs->push_back([this, object] { runFirst(object); });
    }
}

void OnewayQueues::runFirst(IBinder* object) {
    std::shared_ptr<IncomingCall> call;
    {
        const std::lock_guard<std::mutex> lock(mLock);
        call = mQueues.at(object).front();
    }
    call->connection->run(*call);
    const std::lock_guard<std::mutex> lock(mLock);
    const auto found = mQueues.find(object);
    found->second.pop_front();
    if (found->second.empty()) {
        mQueues.erase(found);
    } else {
        // Behind what else is waiting, so that a busy object does not starve the others.
        mPool.post([this, object] { runFirst(object); });
    }
}

}  // namespace transport
}  // namespace android
