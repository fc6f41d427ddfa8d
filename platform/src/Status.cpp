// SPDX-License-Identifier: Apache-2.0
#include <binder/Status.h>

#include "NoMemory.h"

namespace android::binder {

Status::Status(int32_t exception, int32_t errorCode, const String8& message)
    : mException(exception), mErrorCode(errorCode), mMessage(message) {
    if (exception == EX_TRANSACTION_FAILED && errorCode == OK) {
        mErrorCode = FAILED_TRANSACTION;
    }
}

status_t Status::readFromParcel(const Parcel& parcel) {
    const status_t status = orNoMemory([this, &parcel]() -> status_t {
        int32_t exception = EX_NONE;
        int32_t traceSize = 0;
        int32_t code = 0;
        String16 message;
        status_t read = parcel.readInt32(&exception);
        if (read == OK && exception != EX_NONE) {
            if ((read = parcel.readString16(&message)) != OK ||
                (read = parcel.readInt32(&traceSize)) != OK) {
                return read;
            }
            if (traceSize < 0 || static_cast<size_t>(traceSize) > parcel.dataAvail()) {
                return UNKNOWN_ERROR;
            }
            parcel.setDataPosition(parcel.dataPosition() + static_cast<size_t>(traceSize));
            read = exception == EX_SERVICE_SPECIFIC ? parcel.readInt32(&code) : OK;
        }
        if (read == OK) {
            *this = Status(exception, code, String8(message));
        }
        return read;
    });
    if (status != OK) {
        setFromStatusT(status);
    }
    return status;
}

status_t Status::writeToParcel(Parcel* parcel) const {
    if (mException == EX_TRANSACTION_FAILED) {
        return mErrorCode;
    }
    return orNoMemory([this, parcel] {
        status_t status = parcel->writeInt32(mException);
        if (status != OK || isOk()) {
            return status;
        }
        if ((status = parcel->writeString16(String16(mMessage))) != OK ||
            (status = parcel->writeInt32(0)) != OK) {  // no remote trace
            return status;
        }
        return mException == EX_SERVICE_SPECIFIC ? parcel->writeInt32(mErrorCode) : OK;
    });
}

}  // namespace android::binder
