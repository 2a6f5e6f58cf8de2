#include <android/binder_auto_utils.h>
#include <gtest/gtest.h>

namespace {

using ndk::ScopedAStatus;

TEST(StatusTest, ValuesAreTheNdkOnes) {
    EXPECT_EQ(STATUS_DEAD_OBJECT, -32);
    EXPECT_EQ(STATUS_NAME_NOT_FOUND, -2);
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, INT32_MIN + 8);
    EXPECT_EQ(EX_SERVICE_SPECIFIC, -8);
    EXPECT_EQ(EX_TRANSACTION_FAILED, -129);
}

// A status and what each of its accessors must report.
struct Case {
    ScopedAStatus status;
    bool ok;
    binder_exception_t exception;
    binder_status_t code;
    int32_t error;
    const char* message;
    const char* description;
};

TEST(StatusTest, AccessorsReportWhatTheStatusWasMadeFrom) {
    Case cases[] = {
            {ScopedAStatus(AStatus_newOk()), true, EX_NONE, STATUS_OK, 0, "", "ok"},
            {ScopedAStatus::fromStatus(STATUS_OK), true, EX_NONE, STATUS_OK, 0, "", "ok"},
            {ScopedAStatus::fromExceptionCodeWithMessage(EX_NONE, "dropped"), true, EX_NONE,
             STATUS_OK, 0, "", "ok"},
            {ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT), false, EX_TRANSACTION_FAILED,
             STATUS_DEAD_OBJECT, 0, "",
             "EX_TRANSACTION_FAILED (-129), status STATUS_DEAD_OBJECT (-32)"},
            {ScopedAStatus::fromExceptionCode(EX_TRANSACTION_FAILED), false, EX_TRANSACTION_FAILED,
             STATUS_FAILED_TRANSACTION, 0, "",
             "EX_TRANSACTION_FAILED (-129), status STATUS_FAILED_TRANSACTION (-2147483646)"},
            {ScopedAStatus::fromExceptionCode(EX_ILLEGAL_ARGUMENT), false, EX_ILLEGAL_ARGUMENT,
             STATUS_OK, 0, "", "EX_ILLEGAL_ARGUMENT (-3)"},
            {ScopedAStatus::fromExceptionCodeWithMessage(EX_SECURITY, "denied"), false, EX_SECURITY,
             STATUS_OK, 0, "denied", "EX_SECURITY (-1): denied"},
            {ScopedAStatus::fromServiceSpecificErrorWithMessage(-4, "FAILURE"), false,
             EX_SERVICE_SPECIFIC, STATUS_OK, -4, "FAILURE",
             "EX_SERVICE_SPECIFIC (-8), error -4: FAILURE"},
            {ScopedAStatus::fromServiceSpecificError(0), false, EX_SERVICE_SPECIFIC, STATUS_OK, 0,
             "", "EX_SERVICE_SPECIFIC (-8), error 0"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        EXPECT_EQ(c.status.isOk(), c.ok);
        EXPECT_EQ(c.status.getExceptionCode(), c.exception);
        EXPECT_EQ(c.status.getStatus(), c.code);
        EXPECT_EQ(c.status.getServiceSpecificError(), c.error);
        EXPECT_STREQ(c.status.getMessage(), c.message);
        EXPECT_EQ(c.status.getDescription(), c.description);
    }
    EXPECT_FALSE(ScopedAStatus().isOk());
}

}  // namespace
