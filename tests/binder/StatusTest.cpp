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

TEST(StatusTest, OkCarriesNothing) {
    for (AStatus* ok : {AStatus_newOk(), AStatus_fromStatus(STATUS_OK),
                        AStatus_fromExceptionCodeWithMessage(EX_NONE, "dropped")}) {
        ScopedAStatus status(ok);
        EXPECT_TRUE(status.isOk());
        EXPECT_EQ(status.getExceptionCode(), EX_NONE);
        EXPECT_EQ(status.getStatus(), STATUS_OK);
        EXPECT_EQ(status.getServiceSpecificError(), 0);
        EXPECT_STREQ(status.getMessage(), "");
        EXPECT_EQ(status.getDescription(), "ok");
    }
    EXPECT_FALSE(ScopedAStatus().isOk());
}

TEST(StatusTest, FailuresCarryTheirDetails) {
    ScopedAStatus transport = ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    EXPECT_FALSE(transport.isOk());
    EXPECT_EQ(transport.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_EQ(transport.getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(transport.getServiceSpecificError(), 0);
    EXPECT_EQ(transport.getDescription(),
              "EX_TRANSACTION_FAILED (-129), status STATUS_DEAD_OBJECT (-32)");
    EXPECT_EQ(ScopedAStatus::fromExceptionCode(EX_TRANSACTION_FAILED).getStatus(),
              STATUS_FAILED_TRANSACTION);

    ScopedAStatus plain = ScopedAStatus::fromExceptionCode(EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(plain.getExceptionCode(), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(plain.getStatus(), STATUS_OK);
    EXPECT_STREQ(plain.getMessage(), "");
    ScopedAStatus message = ScopedAStatus::fromExceptionCodeWithMessage(EX_SECURITY, "denied");
    EXPECT_FALSE(message.isOk());
    EXPECT_STREQ(message.getMessage(), "denied");
    EXPECT_EQ(message.getDescription(), "EX_SECURITY (-1): denied");

    ScopedAStatus specific = ScopedAStatus::fromServiceSpecificErrorWithMessage(-4, "FAILURE");
    EXPECT_FALSE(specific.isOk());
    EXPECT_EQ(specific.getExceptionCode(), EX_SERVICE_SPECIFIC);
    EXPECT_EQ(specific.getServiceSpecificError(), -4);
    EXPECT_EQ(specific.getStatus(), STATUS_OK);
    EXPECT_STREQ(specific.getMessage(), "FAILURE");
    EXPECT_EQ(specific.getDescription(), "EX_SERVICE_SPECIFIC (-8), error -4: FAILURE");
    ScopedAStatus zero = ScopedAStatus::fromServiceSpecificError(0);
    EXPECT_FALSE(zero.isOk());
    EXPECT_STREQ(zero.getMessage(), "");
}

}  // namespace
