// SPDX-License-Identifier: Apache-2.0
#include "support/ServiceOperations.h"

#include "support/Recording.h"

namespace protocol {
namespace {

const android::os::PersistableBundle kData = registration("player");

// Present, a bundle of 68 bytes, "BNDL", two entries: "Key", string, "player"; "Feature", int, 44.
const std::string kRegistration =
    " 01000000 44000000 424e444c 02000000 03000000 4b006500 79000000 00000000 06000000 70006c00 "
    "61007900 65007200 00000000 07000000 46006500 61007400 75007200 65000000 01000000 2c000000";

// No binder, no stability.
const std::string kNoCallback = " 852a6273 7f010000 00000000 00000000 00000000 00000000 00000000";

const std::string kValues = " 03000000 01000000 02000000 03000000";
const std::string kReversed = " 04000000 03000000 02000000 01000000 4d000000";
const std::string kOk = "00000000";
/** EX_NULL_POINTER, no message, no remote trace. */
const std::string kNullPointer = "fcffffff 00000000 00000000 00000000";

}  // namespace

std::string Results::text() const {
    return std::to_string(result) + (accepted ? " yes" : " no") + protocol::text(values) +
           protocol::text(bytes) + protocol::text(output);
}

const Operation kOperations[] = {
    {"getSupported 44", "1001 no [ 1 2 3 ] [ 4 5 6 7 8 ] 0", " 2c000000", kOk + " e9030000",
     [](auto& it, auto* to, auto&) { return it.getSupported(44, &to->result); }},
    {"setScene 20 -100", "1002 no [ 1 2 3 ] [ 4 5 6 7 8 ] 0", " 14000000 9cffffff",
     kOk + " ea030000",
     [](auto& it, auto* to, auto&) { return it.setScene(20, -100, &to->result); }},
    {"setData 15 Key=player Feature=44", "1003 no [ 1 2 3 ] [ 4 5 6 7 8 ] 0",
     " 0f000000" + kRegistration, kOk + " eb030000",
     [](auto& it, auto* to, auto&) { return it.setData(15, kData, &to->result); }},
    {"getEffectEx 25 16 [ 1 2 3 ] 7", "1004 no [ 3 2 1 77 ] [ 4 5 6 7 8 ] 0",
     " 19000000 10000000" + kValues + " 07000000", kOk + " ec030000" + kReversed,
     [](auto& it, auto* to, auto&) { return it.getEffectEx(25, 16, &to->values, 7, &to->result); }},
    // Five bytes fill up eight.
    {"getEffect 33 14 [ 4 5 6 7 8 ] 9", "1005 no [ 1 2 3 ] [ 8 7 6 5 4 77 ] 0",
     " 21000000 0e000000 05000000 04050607 08000000 09000000",
     kOk + " ed030000 06000000 08070605 044d0000",
     [](auto& it, auto* to, auto&) { return it.getEffect(33, 14, &to->bytes, 9, &to->result); }},
    {"getEffectExByData 44 Key=player Feature=44 [ 1 2 3 ]", "1006 no [ 3 2 1 77 ] [ 4 5 6 7 8 ] 0",
     " 2c000000" + kRegistration + kValues, kOk + " ee030000" + kReversed,
     [](auto& it, auto* to, auto&) {
         return it.getEffectExByData(44, kData, &to->values, &to->result);
     }},
    {"setEffect 25 16 Key=player Feature=44", "1007 no [ 1 2 3 ] [ 4 5 6 7 8 ] 0",
     " 19000000 10000000" + kRegistration, kOk + " ef030000",
     [](auto& it, auto* to, auto&) { return it.setEffect(25, 16, kData, &to->result); }},
    {"registerCallback told", kUntouched, kNoCallback, kNullPointer,
     [](auto& it, auto*, auto& callback) { return it.registerCallback(callback); }},
    {"registerCallbackEx Key=player Feature=44", "-5 yes [ 1 2 3 ] [ 4 5 6 7 8 ] 0",
     kNoCallback + kRegistration, kNullPointer,
     [](auto& it, auto* to, auto& callback) {
         return it.registerCallbackEx(callback, kData, &to->accepted);
     }},
    {"unregisterCallback", kUntouched, kNoCallback, kNullPointer,
     [](auto& it, auto*, auto& callback) { return it.unregisterCallback(callback); }},
    {"unregisterCallbackEx Key=player Feature=44", kUntouched, kRegistration, kOk,
     [](auto& it, auto*, auto&) { return it.unregisterCallbackEx(kData); }},
    // Two parcelables, present, without a buffer.
    {"processGraphicBuffer 1 2 0 0", "1012 no [ 1 2 3 ] [ 4 5 6 7 8 ] 4",
     " 01000000 02000000 01000000 00000000 01000000 00000000", "",
     [](auto& it, auto* to, auto&) {
         return it.processGraphicBuffer(1, 2, &to->input, &to->output, &to->result);
     }},
};

}  // namespace protocol
