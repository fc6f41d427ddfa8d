// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/IBinder.h>

#include <cstdint>

/** The codes of both interfaces' transactions, shared by proxy and stub. */
namespace com {
namespace tivora {
namespace displayengine {

enum class ServiceCode : uint32_t {
    GET_SUPPORTED = android::IBinder::FIRST_CALL_TRANSACTION,
    SET_SCENE,
    SET_DATA,
    GET_EFFECT_EX,
    GET_EFFECT,
    GET_EFFECT_EX_BY_DATA,
    SET_EFFECT,
    REGISTER_CALLBACK,
    REGISTER_CALLBACK_EX,
    UNREGISTER_CALLBACK,
    UNREGISTER_CALLBACK_EX,
    PROCESS_GRAPHIC_BUFFER,
};

/** Number of transactions. */
constexpr uint32_t kServiceCodeCount = 12;

enum class CallbackCode : uint32_t {
    ON_EVENT = android::IBinder::FIRST_CALL_TRANSACTION,
    ON_EVENT_WITH_DATA,
};

}  // namespace displayengine
}  // namespace tivora
}  // namespace com
