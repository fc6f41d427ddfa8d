// SPDX-License-Identifier: Apache-2.0
#include "support/ServiceOperations.h"

#include <binder/PersistableBundle.h>
#include <utils/String16.h>

#include "support/ProtocolPeerObjects.h"

using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using com::tivora::displayengine::IDisplayEngineCallback;
using com::tivora::displayengine::IDisplayEngineService;

namespace protocol {
namespace {

template <typename T>
std::string list(const std::vector<T>& elements) {
    std::string joined;
    for (const T element : elements) {
        joined += (joined.empty() ? " " : ",") + std::to_string(element);
    }
    return joined.empty() ? " -" : joined;
}

PersistableBundle registration() {
    PersistableBundle data;
    data.putString(String16("Key"), String16("player"));
    data.putInt(String16("Feature"), 44);
    return data;
}

PersistableBundle frameRate() {
    PersistableBundle data;
    data.putString(String16("FPS"), String16("60"));
    return data;
}

}  // namespace

std::string Results::text() const {
    return std::to_string(result) + (accepted ? " yes" : " no") + list(values) + list(bytes) +
           protocol::text(output);
}

const Operation kOperations[] = {
    {1, "getSupported 44", "1001 no 1,2,3 4,5,6,7,8 none"},
    {2, "setScene 20 -100", "1002 no 1,2,3 4,5,6,7,8 none"},
    {3, "setData 15 FPS=60", "1003 no 1,2,3 4,5,6,7,8 none"},
    {4, "getEffectEx 25 16 [ 1 2 3 ] 7", "1004 no 3,2,1,77 4,5,6,7,8 none"},
    {5, "getEffect 33 14 [ 4 5 6 7 8 ] 9", "1005 no 1,2,3 8,7,6,5,4,77 none"},
    {6, "getEffectExByData 44 Key=player Feature=44 [ 1 2 3 ]", "1006 no 3,2,1,77 4,5,6,7,8 none"},
    {7, "setEffect 25 16 FPS=60", "1007 no 1,2,3 4,5,6,7,8 none"},
    {8, "registerCallback told", kUntouched},
    {9, "registerCallbackEx Key=player Feature=44", "-5 yes 1,2,3 4,5,6,7,8 none"},
    {10, "unregisterCallback", kUntouched},
    {11, "unregisterCallbackEx Key=player Feature=44", kUntouched},
    {12, "processGraphicBuffer 1 2 none none", "1012 no 1,2,3 4,5,6,7,8 4x2"},
};

Status callOperation(IDisplayEngineService& service, uint32_t code, Results* out,
                     const sp<IDisplayEngineCallback>& callback) {
    switch (code) {
        case 1:
            return service.getSupported(44, &out->result);
        case 2:
            return service.setScene(20, -100, &out->result);
        case 3:
            return service.setData(15, frameRate(), &out->result);
        case 4:
            return service.getEffectEx(25, 16, &out->values, 7, &out->result);
        case 5:
            return service.getEffect(33, 14, &out->bytes, 9, &out->result);
        case 6:
            return service.getEffectExByData(44, registration(), &out->values, &out->result);
        case 7:
            return service.setEffect(25, 16, frameRate(), &out->result);
        case 8:
            return service.registerCallback(callback);
        case 9:
            return service.registerCallbackEx(callback, registration(), &out->accepted);
        case 10:
            return service.unregisterCallback(callback);
        case 11:
            return service.unregisterCallbackEx(registration());
        default:
            return service.processGraphicBuffer(1, 2, &out->input, &out->output, &out->result);
    }
}

}  // namespace protocol
