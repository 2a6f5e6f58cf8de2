/*
 * Binder statuses: the transport-level status codes (binder_status_t), the exception codes that a
 * call can carry back (binder_exception_t), and AStatus, the result object of a binder call.
 *
 * The numeric values are those of the Android NDK, so that code and logs read the same on a device
 * and on this host. Every AStatus function is thread-safe; an AStatus itself is immutable after
 * creation and may be read from any thread.
 */
#ifndef ANDROID_BINDER_STATUS_H
#define ANDROID_BINDER_STATUS_H

#include <errno.h>
#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Transport-level result of a binder operation. */
enum {
    STATUS_OK = 0,

    STATUS_UNKNOWN_ERROR = (-2147483647 - 1),
    STATUS_NO_MEMORY = -ENOMEM,
    STATUS_INVALID_OPERATION = -ENOSYS,
    STATUS_BAD_VALUE = -EINVAL,
    STATUS_BAD_TYPE = (STATUS_UNKNOWN_ERROR + 1),
    STATUS_NAME_NOT_FOUND = -ENOENT,
    STATUS_PERMISSION_DENIED = -EPERM,
    STATUS_NO_INIT = -ENODEV,
    STATUS_ALREADY_EXISTS = -EEXIST,
    STATUS_DEAD_OBJECT = -EPIPE,
    STATUS_FAILED_TRANSACTION = (STATUS_UNKNOWN_ERROR + 2),
    STATUS_BAD_INDEX = -EOVERFLOW,
    STATUS_NOT_ENOUGH_DATA = -ENODATA,
    STATUS_WOULD_BLOCK = -EWOULDBLOCK,
    STATUS_TIMED_OUT = -ETIMEDOUT,
    STATUS_UNKNOWN_TRANSACTION = -EBADMSG,
    STATUS_FDS_NOT_ALLOWED = (STATUS_UNKNOWN_ERROR + 7),
    STATUS_UNEXPECTED_NULL = (STATUS_UNKNOWN_ERROR + 8),
};
typedef int32_t binder_status_t;

/* Exception carried by a call's result; EX_NONE means the call succeeded. */
enum {
    EX_NONE = 0,
    EX_SECURITY = -1,
    EX_BAD_PARCELABLE = -2,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_NULL_POINTER = -4,
    EX_ILLEGAL_STATE = -5,
    EX_NETWORK_MAIN_THREAD = -6,
    EX_UNSUPPORTED_OPERATION = -7,
    EX_SERVICE_SPECIFIC = -8,
    EX_PARCELABLE = -9,
    /* Not an exception: marks a reply header. */
    EX_HAS_REPLY_HEADER = -128,
    /* The call failed in transport; AStatus_getStatus tells how. */
    EX_TRANSACTION_FAILED = -129,
};
typedef int32_t binder_exception_t;

/*
 * The result of a call: an exception code, a service-specific error code (EX_SERVICE_SPECIFIC) or a
 * transport status (EX_TRANSACTION_FAILED), and an optional message. Every constructor below
 * returns a new object that the caller owns and releases with AStatus_delete; none returns null.
 */
typedef struct AStatus AStatus;

AStatus* AStatus_newOk(void);

/* EX_NONE gives a successful status; EX_TRANSACTION_FAILED carries STATUS_FAILED_TRANSACTION. */
AStatus* AStatus_fromExceptionCode(binder_exception_t exception);

/* As AStatus_fromExceptionCode, with a copy of `message` (null means none). */
AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message);

/* EX_SERVICE_SPECIFIC carrying `serviceSpecific`; never successful, even for 0. */
AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific);

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message);

/* STATUS_OK gives a successful status; any other value EX_TRANSACTION_FAILED carrying it. */
AStatus* AStatus_fromStatus(binder_status_t status);

/* The getters take a non-null status. */
bool AStatus_isOk(const AStatus* status);

binder_exception_t AStatus_getExceptionCode(const AStatus* status);

/* The service-specific code for EX_SERVICE_SPECIFIC, otherwise 0. */
int32_t AStatus_getServiceSpecificError(const AStatus* status);

/* The transport status for EX_TRANSACTION_FAILED, otherwise STATUS_OK. */
binder_status_t AStatus_getStatus(const AStatus* status);

/* The message, "" when there is none; valid as long as `status`. */
const char* AStatus_getMessage(const AStatus* status);

/*
 * A human-readable summary of the whole status, for logs. The caller owns the returned text and
 * frees it with AStatus_deleteDescription.
 */
const char* AStatus_getDescription(const AStatus* status);

void AStatus_deleteDescription(const char* description);

/* Accepts null. */
void AStatus_delete(AStatus* status);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif /* ANDROID_BINDER_STATUS_H */
