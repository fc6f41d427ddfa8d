#include <binder/Stability.h>

#include <binder/Binder.h>
#include <binder/BpBinder.h>

namespace android {
namespace internal {

void Stability::markCompilationUnit(IBinder* binder) {
    setStability(binder, SYSTEM);
}

int32_t Stability::getStability(IBinder* binder) {
    if (binder == nullptr) {
        return UNDECLARED;
    }
    if (const BBinder* local = binder->localBinder()) {
        return local->mStability;
    }
    const BpBinder* remote = binder->remoteBinder();
    return remote != nullptr ? remote->mStability.load() : int32_t{UNDECLARED};
}

void Stability::setStability(IBinder* binder, int32_t level) {
    if (binder == nullptr) {
        return;
    }
    if (BBinder* local = binder->localBinder()) {
        local->mStability = level;
    } else if (BpBinder* remote = binder->remoteBinder()) {
        remote->mStability = level;
    }
}

}  // namespace internal
}  // namespace android
