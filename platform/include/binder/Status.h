// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <binder/Parcel.h>
#include <utils/String8.h>

namespace android::binder {

/**
 * Outcome of an interface call: ok, an exception of the remote implementation, or the transport
 * error that kept the call from being made. A plain value.
 */
class [[nodiscard]] Status final {
public:
    enum Exception : int32_t {
        EX_NONE = 0,
        EX_SECURITY = -1,
        EX_BAD_PARCELABLE = -2,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_NULL_POINTER = -4,
        EX_ILLEGAL_STATE = -5,
        EX_UNSUPPORTED_OPERATION = -7,
        EX_SERVICE_SPECIFIC = -8,
        EX_TRANSACTION_FAILED = -129,
    };

    Status() = default;
    static Status ok() { return {}; }
    static Status fromExceptionCode(int32_t exception, const String8& message = String8()) {
        return {exception, OK, message};
    }
    static Status fromExceptionCode(int32_t exception, const char* message) {
        return {exception, OK, String8(message)};
    }
    static Status fromServiceSpecificError(int32_t code, const String8& message = String8()) {
        return {EX_SERVICE_SPECIFIC, code, message};
    }
    static Status fromServiceSpecificError(int32_t code, const char* message) {
        return {EX_SERVICE_SPECIFIC, code, String8(message)};
    }
    static Status fromStatusT(status_t status) {
        return {status == OK ? EX_NONE : EX_TRANSACTION_FAILED, status, String8()};
    }
    /** OK makes it ok, anything else a transport error. */
    void setFromStatusT(status_t status) { *this = fromStatusT(status); }

    bool isOk() const { return mException == EX_NONE; }
    int32_t exceptionCode() const { return mException; }
    const String8& exceptionMessage() const { return mMessage; }
    /** The transport error, OK for any other outcome. */
    status_t transactionError() const {
        return mException == EX_TRANSACTION_FAILED ? mErrorCode : status_t{OK};
    }
    /** The service's own error code, 0 for any other outcome. */
    int32_t serviceSpecificErrorCode() const {
        return mException == EX_SERVICE_SPECIFIC ? mErrorCode : 0;
    }

    /**
     * Reads what the remote side wrote. A failed read is returned and also becomes the content.
     */
    status_t readFromParcel(const Parcel& parcel);
    /** Writes the outcome; a transport error writes nothing and is returned. */
    status_t writeToParcel(Parcel* parcel) const;

private:
    Status(int32_t exception, int32_t errorCode, const String8& message);

    int32_t mException = EX_NONE;
    int32_t mErrorCode = 0;
    String8 mMessage;
};

}  // namespace android::binder
