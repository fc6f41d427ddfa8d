// SPDX-License-Identifier: Apache-2.0
#include <binder/Parcel.h>
#include <binder/Status.h>

#include <string>

namespace android {
namespace binder {

Status::Status(int32_t exception, int32_t errorCode, const String8& message)
    : mException(exception), mErrorCode(errorCode), mMessage(message) {
    if (exception == EX_TRANSACTION_FAILED && errorCode == OK) {
        mErrorCode = FAILED_TRANSACTION;
    }
}

Status Status::fromStatusT(status_t status) {
    Status result;
    result.setFromStatusT(status);
    return result;
}

String8 Status::exceptionToString(int32_t exception) {
    switch (exception) {
#define EXCEPTION_CASE(name) \
    case name:               \
        return String8(#name)
        EXCEPTION_CASE(EX_NONE);
        EXCEPTION_CASE(EX_SECURITY);
        EXCEPTION_CASE(EX_BAD_PARCELABLE);
        EXCEPTION_CASE(EX_ILLEGAL_ARGUMENT);
        EXCEPTION_CASE(EX_NULL_POINTER);
        EXCEPTION_CASE(EX_ILLEGAL_STATE);
        EXCEPTION_CASE(EX_NETWORK_MAIN_THREAD);
        EXCEPTION_CASE(EX_UNSUPPORTED_OPERATION);
        EXCEPTION_CASE(EX_SERVICE_SPECIFIC);
        EXCEPTION_CASE(EX_TRANSACTION_FAILED);
#undef EXCEPTION_CASE
        default:
            return String8(std::to_string(exception).c_str());
    }
}

void Status::setException(int32_t exception, const String8& message) {
    *this = Status(exception, OK, message);
}

void Status::setServiceSpecificError(int32_t code, const String8& message) {
    *this = Status(EX_SERVICE_SPECIFIC, code, message);
}

void Status::setFromStatusT(status_t status) {
    *this = status == OK ? Status() : Status(EX_TRANSACTION_FAILED, status, String8());
}

String8 Status::toString8() const {
    if (isOk()) {
        return String8("No error");
    }
    std::string text = std::string("Status(") + exceptionToString(mException).c_str();
    if (mException == EX_SERVICE_SPECIFIC) {
        text += ", code " + std::to_string(mErrorCode);
    } else if (mException == EX_TRANSACTION_FAILED) {
        text += ", " + statusToString(mErrorCode);
    }
    return String8((text + "): '" + mMessage.c_str() + "'").c_str());
}

status_t Status::readFromParcel(const Parcel& parcel) {
    const auto fail = [this](status_t error) {
        setFromStatusT(error);
        return error;
    };
    int32_t exception = EX_NONE;
    status_t status = parcel.readInt32(&exception);
    if (status != OK) {
        return fail(status);
    }
    if (exception == EX_NONE) {
        *this = Status();
        return OK;
    }
    String16 message;
    int32_t traceSize = 0;
    if ((status = parcel.readString16(&message)) != OK ||
        (status = parcel.readInt32(&traceSize)) != OK) {
        return fail(status);
    }
    if (traceSize < 0 || static_cast<size_t>(traceSize) > parcel.dataAvail()) {
        return fail(UNKNOWN_ERROR);
    }
    parcel.setDataPosition(parcel.dataPosition() + static_cast<size_t>(traceSize));
    int32_t code = 0;
    if (exception == EX_SERVICE_SPECIFIC && (status = parcel.readInt32(&code)) != OK) {
        return fail(status);
    }
    *this = Status(exception, code, String8(message));
    return OK;
}

status_t Status::writeToParcel(Parcel* parcel) const {
    if (mException == EX_TRANSACTION_FAILED) {
        return mErrorCode;
    }
    status_t status = parcel->writeInt32(mException);
    if (status != OK || mException == EX_NONE) {
        return status;
    }
    if ((status = parcel->writeString16(String16(mMessage))) != OK ||
        (status = parcel->writeInt32(0)) != OK) {  // no remote trace
        return status;
    }
    return mException == EX_SERVICE_SPECIFIC ? parcel->writeInt32(mErrorCode) : OK;
}

}  // namespace binder
}  // namespace android
