// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <binder/PersistableBundle.h>
#include <binder/Status.h>
#include <utils/String16.h>
#include <utils/StrongPointer.h>

#include <cstdint>
#include <memory>

#include "common/Export.h"

namespace com {
namespace tivora {
namespace displayengine {

/**
 * How the display engine service tells its clients of events.
 *
 * A client derives from BnDisplayEngineCallback and registers the object with the service, which
 * holds it from then on. Both operations are oneway: the sender learns only whether the event was
 * handed over. Events of one object arrive in order, one at a time, on the binder threads of the
 * client process, which must run a thread pool; an implementation must not block long.
 */
class DE_EXPORT IDisplayEngineCallback : public android::IInterface {
public:
    IDisplayEngineCallback();
    ~IDisplayEngineCallback() override;

    /** The interface's name on the wire, at the head of every request. */
    static const android::String16 descriptor;
    /** The same. */
    virtual const android::String16& getInterfaceDescriptor() const;

    /** The object itself when it lives in this process, otherwise a new proxy; null for null. */
    static android::sp<IDisplayEngineCallback> asInterface(
        const android::sp<android::IBinder>& binder);

    /**
     * Installs the object that answers calls unknown to the other side, and takes ownership. A null
     * `impl` is refused with false and changes nothing. Takes no lock: a process calls it before it
     * makes calls that may need it.
     */
    static bool setDefaultImpl(std::unique_ptr<IDisplayEngineCallback> impl);
    /** What setDefaultImpl() installed, or null. */
    static const std::unique_ptr<IDisplayEngineCallback>& getDefaultImpl();

    /** An event with a plain value; its meaning belongs to the service. */
    virtual android::binder::Status onEvent(int32_t event, int32_t value) = 0;

    /** An event with data, for example IDisplayEngineService::DE_EVENT_AISR with "Enable". */
    virtual android::binder::Status onEventWithData(int32_t event,
                                                    const android::os::PersistableBundle& data) = 0;

private:
    static std::unique_ptr<IDisplayEngineCallback> default_impl;
};

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
