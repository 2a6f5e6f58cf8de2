// AStatus: an immutable value, so it needs no lock.

#include <android/binder_status.h>

#include <cstdlib>
#include <cstring>
#include <string>

struct AStatus {
    binder_exception_t mException = EX_NONE;
    int32_t mErrorCode = 0;  // service-specific code or transport status, by mException
    std::string mMessage;
};

namespace {

AStatus* newStatus(binder_exception_t exception, int32_t errorCode, const char* message) {
    AStatus* status = new AStatus;
    status->mException = exception;
    status->mErrorCode = errorCode;
    // A successful status carries nothing but its success.
    if (exception != EX_NONE && message != nullptr) status->mMessage = message;
    return status;
}

const char* exceptionName(binder_exception_t exception) {
    switch (exception) {
        case EX_NONE:
            return "EX_NONE";
        case EX_SECURITY:
            return "EX_SECURITY";
        case EX_BAD_PARCELABLE:
            return "EX_BAD_PARCELABLE";
        case EX_ILLEGAL_ARGUMENT:
            return "EX_ILLEGAL_ARGUMENT";
        case EX_NULL_POINTER:
            return "EX_NULL_POINTER";
        case EX_ILLEGAL_STATE:
            return "EX_ILLEGAL_STATE";
        case EX_NETWORK_MAIN_THREAD:
            return "EX_NETWORK_MAIN_THREAD";
        case EX_UNSUPPORTED_OPERATION:
            return "EX_UNSUPPORTED_OPERATION";
        case EX_SERVICE_SPECIFIC:
            return "EX_SERVICE_SPECIFIC";
        case EX_PARCELABLE:
            return "EX_PARCELABLE";
        case EX_HAS_REPLY_HEADER:
            return "EX_HAS_REPLY_HEADER";
        case EX_TRANSACTION_FAILED:
            return "EX_TRANSACTION_FAILED";
        default:
            return "unknown exception";
    }
}

const char* statusName(binder_status_t status) {
    switch (status) {
        case STATUS_OK:
            return "STATUS_OK";
        case STATUS_UNKNOWN_ERROR:
            return "STATUS_UNKNOWN_ERROR";
        case STATUS_NO_MEMORY:
            return "STATUS_NO_MEMORY";
        case STATUS_INVALID_OPERATION:
            return "STATUS_INVALID_OPERATION";
        case STATUS_BAD_VALUE:
            return "STATUS_BAD_VALUE";
        case STATUS_BAD_TYPE:
            return "STATUS_BAD_TYPE";
        case STATUS_NAME_NOT_FOUND:
            return "STATUS_NAME_NOT_FOUND";
        case STATUS_PERMISSION_DENIED:
            return "STATUS_PERMISSION_DENIED";
        case STATUS_NO_INIT:
            return "STATUS_NO_INIT";
        case STATUS_ALREADY_EXISTS:
            return "STATUS_ALREADY_EXISTS";
        case STATUS_DEAD_OBJECT:
            return "STATUS_DEAD_OBJECT";
        case STATUS_FAILED_TRANSACTION:
            return "STATUS_FAILED_TRANSACTION";
        case STATUS_BAD_INDEX:
            return "STATUS_BAD_INDEX";
        case STATUS_NOT_ENOUGH_DATA:
            return "STATUS_NOT_ENOUGH_DATA";
        case STATUS_WOULD_BLOCK:
            return "STATUS_WOULD_BLOCK";
        case STATUS_TIMED_OUT:
            return "STATUS_TIMED_OUT";
        case STATUS_UNKNOWN_TRANSACTION:
            return "STATUS_UNKNOWN_TRANSACTION";
        case STATUS_FDS_NOT_ALLOWED:
            return "STATUS_FDS_NOT_ALLOWED";
        case STATUS_UNEXPECTED_NULL:
            return "STATUS_UNEXPECTED_NULL";
        default:
            return "unknown status";
    }
}

}  // namespace

AStatus* AStatus_newOk() {
    return newStatus(EX_NONE, 0, nullptr);
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return AStatus_fromExceptionCodeWithMessage(exception, nullptr);
}

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    int32_t errorCode = exception == EX_TRANSACTION_FAILED ? STATUS_FAILED_TRANSACTION : 0;
    return newStatus(exception, errorCode, message);
}

AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
    return newStatus(EX_SERVICE_SPECIFIC, serviceSpecific, nullptr);
}

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
    return newStatus(EX_SERVICE_SPECIFIC, serviceSpecific, message);
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    if (status == STATUS_OK) return AStatus_newOk();
    return newStatus(EX_TRANSACTION_FAILED, status, nullptr);
}

bool AStatus_isOk(const AStatus* status) {
    return status->mException == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return status->mException;
}

int32_t AStatus_getServiceSpecificError(const AStatus* status) {
    return status->mException == EX_SERVICE_SPECIFIC ? status->mErrorCode : 0;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
    return status->mException == EX_TRANSACTION_FAILED ? status->mErrorCode : STATUS_OK;
}

const char* AStatus_getMessage(const AStatus* status) {
    return status->mMessage.c_str();
}

// "EX_SERVICE_SPECIFIC (-8), error -4: FAILURE", "EX_TRANSACTION_FAILED (-129), status
// STATUS_DEAD_OBJECT (-32)", or "ok".
const char* AStatus_getDescription(const AStatus* status) {
    std::string text;
    if (status->mException == EX_NONE) {
        text = "ok";
    } else {
        text = std::string(exceptionName(status->mException)) + " (" +
               std::to_string(status->mException) + ")";
        if (status->mException == EX_SERVICE_SPECIFIC) {
            text += ", error " + std::to_string(status->mErrorCode);
        } else if (status->mException == EX_TRANSACTION_FAILED) {
            text += std::string(", status ") + statusName(status->mErrorCode) + " (" +
                    std::to_string(status->mErrorCode) + ")";
        }
        if (!status->mMessage.empty()) text += ": " + status->mMessage;
    }
    return strdup(text.c_str());
}

void AStatus_deleteDescription(const char* description) {
    free(const_cast<char*>(description));
}

void AStatus_delete(AStatus* status) {
    delete status;
}
