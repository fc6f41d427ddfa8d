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
#include <vector>

#include "aidl/DeGraphicBuffer.h"
#include "aidl/IDisplayEngineCallback.h"
#include "common/Export.h"

namespace com {
namespace tivora {
/** The binder interfaces between the display engine service and its clients. */
namespace displayengine {

/**
 * The display engine service, registered with the service manager as "DisplayEngineService".
 *
 * Every operation blocks its caller until the service has replied, and reports each failure through
 * the returned Status: a transport error, or an exception of the service. The out-value and the
 * inout arguments count only when the Status is ok; preset them. An inout argument travels to the
 * service whole and comes back with the service's contents. Any thread may call; several may call
 * at once.
 */
class DE_EXPORT IDisplayEngineService : public android::IInterface {
public:
    IDisplayEngineService();
    ~IDisplayEngineService() override;

    /** The interface's name on the wire, at the head of every request. */
    static const android::String16 descriptor;
    /** The same. */
    virtual const android::String16& getInterfaceDescriptor() const;

    /** The object itself when it lives in this process, otherwise a new proxy; null for null. */
    static android::sp<IDisplayEngineService> asInterface(
        const android::sp<android::IBinder>& binder);

    /**
     * Installs the object that answers calls unknown to an older service, and takes ownership. A
     * null `impl` is refused with false and changes nothing. Takes no lock: a process calls it
     * before it makes calls that may need it.
     */
    static bool setDefaultImpl(std::unique_ptr<IDisplayEngineService> impl);
    /** What setDefaultImpl() installed, or null. */
    static const std::unique_ptr<IDisplayEngineService>& getDefaultImpl();

    // Features, data types, effect types, scenes and events are number spaces of their own: the
    // same number means different things in different arguments.

    /** `event` of IDisplayEngineCallback::onEventWithData; the data holds the boolean "Enable". */
    enum : int32_t { DE_EVENT_AISR = 3 };

    /** `feature` of getSupported, getEffect and getEffectExByData; value of the key "Feature". */
    enum : int32_t {
        DE_FEATURE_PANEL_NAME = 14,
        DE_FEATURE_RGLED = 19,
        DE_FEATURE_LOCAL_HBM = 25,
        DE_FEATURE_READING = 26,
        DE_FEATURE_FOLDINGCOMPENSATION = 33,
        DE_FEATURE_GLOBAL_READING = 34,
        DE_FEATURE_AISR = 44,
    };

    /** `type` of getEffect and setData. */
    enum : int32_t {
        DE_DATA_TYPE_ALPHA = 14,            /**< with DE_FEATURE_FOLDINGCOMPENSATION */
        DE_DATA_TYPE_FRAMERATE = 15,        /**< the data holds the string "FPS" */
        DE_DATA_TYPE_LOCAL_HBM = 16,        /**< with DE_FEATURE_LOCAL_HBM */
        DE_DATA_TYPE_CWB_FORCE_ENABLE = 24, /**< the data holds the int "forceEnable", 0 or 1 */
    };

    /** Value of the key "Type" in the data of getEffectExByData. */
    enum : int32_t { DE_EFFECT_TYPE_CONFIG = 26 };

    /** `scene` of setScene; the value is the brightness level. */
    enum : int32_t { DE_SCENE_BRIGHTNESS = 20 };

    /** Whether and how the panel has `feature`: as a rule 1 for yes and 0 for no. */
    virtual android::binder::Status getSupported(int32_t feature, int32_t* result) = 0;
    /** Tells the service that `scene` has `value`. `result`: 0, or the service's error. */
    virtual android::binder::Status setScene(int32_t scene, int32_t value, int32_t* result) = 0;
    /** Hands over the data of `type`. `result`: 0, or the service's error. */
    virtual android::binder::Status setData(int32_t type,
                                            const android::os::PersistableBundle& data,
                                            int32_t* result) = 0;
    /** Asks for `length` values, which come back in `status`. `result`: 0, or an error. */
    virtual android::binder::Status getEffectEx(int32_t feature, int32_t type,
                                                std::vector<int32_t>* status, int32_t length,
                                                int32_t* result) = 0;
    /** Asks for `length` bytes, which come back in `buffer`. `result`: 0, or an error. */
    virtual android::binder::Status getEffect(int32_t feature, int32_t type,
                                              std::vector<uint8_t>* buffer, int32_t length,
                                              int32_t* result) = 0;
    /** Asks for the values that `data` describes; they come back in `status`. */
    virtual android::binder::Status getEffectExByData(int32_t feature,
                                                      const android::os::PersistableBundle& data,
                                                      std::vector<int32_t>* status,
                                                      int32_t* result) = 0;
    /** Sets an effect. `result`: 0, or the service's error. */
    virtual android::binder::Status setEffect(int32_t feature, int32_t type,
                                              const android::os::PersistableBundle& data,
                                              int32_t* result) = 0;
    /** Registers for the service's events. The service holds `callback`, which is not null. */
    virtual android::binder::Status registerCallback(
        const android::sp<IDisplayEngineCallback>& callback) = 0;
    /** Registers under the "Key" and "Feature" of `data`; `result`: whether it was accepted. */
    virtual android::binder::Status registerCallbackEx(
        const android::sp<IDisplayEngineCallback>& callback,
        const android::os::PersistableBundle& data, bool* result) = 0;
    /** Withdraws a registration made by registerCallback(). */
    virtual android::binder::Status unregisterCallback(
        const android::sp<IDisplayEngineCallback>& callback) = 0;
    /** Withdraws what was registered under the same "Key" and "Feature". */
    virtual android::binder::Status unregisterCallbackEx(
        const android::os::PersistableBundle& data) = 0;
    /** Has the service process an image; both buffers come back as it leaves them. */
    virtual android::binder::Status processGraphicBuffer(int32_t feature, int32_t type,
                                                         DeGraphicBuffer* input,
                                                         DeGraphicBuffer* output,
                                                         int32_t* result) = 0;

private:
    static std::unique_ptr<IDisplayEngineService> default_impl;
};

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
