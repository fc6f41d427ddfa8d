#include <android/log.h>
#include <binder/IServiceManager.h>
#include <utils/String8.h>

#include "BinderProcess.h"
#include "ServiceRegistry.h"

namespace android {
namespace {

constexpr int64_t kGetServiceTimeoutNs = 5'000'000'000;

std::string utf8(const String16& name) {
    const String8 text(name);
    return std::string(text.c_str(), text.size());
}

class ServiceManager : public IServiceManager {
public:
    sp<IBinder> getService(const String16& name) const override {
        sp<IBinder> service = registry().waitFor(utf8(name), kGetServiceTimeoutNs);
        if (service == nullptr) {
            __android_log_print(ANDROID_LOG_WARN, "ServiceManager",
                                "Service %s didn't start. Returning NULL", utf8(name).c_str());
        }
        return service;
    }

    sp<IBinder> checkService(const String16& name) const override {
        return registry().find(utf8(name));
    }

    status_t addService(const String16& name, const sp<IBinder>& service, bool /*allowIsolated*/,
                        int /*dumpsysFlags*/) override {
        return registry().add(utf8(name), service);
    }

protected:
    /// The registry is no object of its own that could be handed on.
    IBinder* onAsBinder() override { return nullptr; }

private:
    static transport::ServiceRegistry& registry() {
        return transport::BinderProcess::self().registry();
    }
};

}  // namespace

sp<IServiceManager> defaultServiceManager() {
    static const sp<IServiceManager>* const manager = new sp<IServiceManager>(new ServiceManager());
    return *manager;
}

}  // namespace android
