// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IInterface.h>

namespace android {

/** Finds and registers services by name. Every operation may be called from any thread. */
class IServiceManager : public IInterface {
public:
    enum { DUMP_FLAG_PRIORITY_DEFAULT = 1 << 3 };

    /** The service, waited for up to 5 seconds; null when it has not appeared by then. */
    virtual sp<IBinder> getService(const String16& name) const = 0;

    /**
     * The service, or null at once: the service's process is not waited for. A service of this
     * process is handed out as it is.
     */
    virtual sp<IBinder> checkService(const String16& name) const = 0;

    /**
     * Registers `service`, which stays referenced for the life of the process. Calls to it run once
     * the process has started its thread pool.
     *
     * BAD_VALUE: a name that is empty, starts with a dot or holds a slash, or a null service.
     * ALREADY_EXISTS: another live process has registered the name. PERMISSION_DENIED: the runtime
     * directory is another user's or open to others. Otherwise the system's error, negated.
     * Registering a name again from the same process replaces the service for this process and
     * for those that have not found it yet.
     */
    virtual status_t addService(const String16& name, const sp<IBinder>& service,
                                bool allowIsolated = false,
                                int dumpsysFlags = DUMP_FLAG_PRIORITY_DEFAULT) = 0;
};

/** The one service manager of the process. */
sp<IServiceManager> defaultServiceManager();

}  // namespace android
